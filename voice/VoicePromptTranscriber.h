#pragma once

#include <QFuture>
#include <QObject>
#include <QPromise>
#include <QString>
#include <QTimer>

#include <optional>

class SpeechRecognizer;

// One dictation at a time over the recogniser: start, then stop for the transcript. The
// recogniser may be shared; the transcriber listens to it only while its own capture runs, and
// a start by another transcriber on the same recogniser ends that capture. Lives on the main
// thread.
class VoicePromptTranscriber final : public QObject {
    Q_OBJECT

public:
    // How long a stop waits for the recogniser's final result before the latest partial one
    // is taken, when its partial results keep up with the speech.
    static constexpr int finalResultWaitMilliseconds = 1500;
    // Added to the time limit of a recogniser that transcribes after the stop: it ends its own
    // work at its limit and says so, which is the better answer.
    static constexpr int finalResultLimitGraceMilliseconds = 5000;

    explicit VoicePromptTranscriber(SpeechRecognizer &recognizer, QObject *parent = nullptr);
    ~VoicePromptTranscriber() override;

    // Ends any earlier capture and starts a new one. Throws VoicePromptDraftError
    // (speechRecognitionUnavailable, recordingFailed).
    void startRecording();
    // The transcript as the recogniser last reported it (untrimmed): its final result, or
    // after the wait (the recogniser's own time limit when it transcribes after the stop) the
    // latest partial one. Fails with emptyTranscription when nothing was heard, recordingFailed
    // when the recogniser failed before any speech, and cancelled when nothing is being
    // captured or a stop is already under way. Delivers exactly once.
    QFuture<QString> stopRecording();
    // Tears the capture down; a pending stop fails with cancelled.
    void cancel();

    bool isCapturing() const noexcept { return m_isCapturing; }

Q_SIGNALS:
    // Another transcriber started on the shared recogniser; this capture has ended (a pending
    // stop failed with cancelled).
    void captureTakenOver();
    // The recogniser failed while capturing: nothing more is recorded, and a stop answers at
    // once with what was heard or with the failure.
    void captureFailed();

private:
    void handleRecognitionUpdate(const QString &transcript, bool isFinal);
    void handleRecognitionFailure(const QString &errorText);
    void completeStopIfNeededWithFallback();
    void yieldCapture();
    // The one teardown: every stop and cancel ends here, and the pending stop is answered.
    void completeStop(const QString *transcript, std::exception_ptr error);

    SpeechRecognizer &m_recognizer;
    QTimer m_stopFallbackTimer;
    QMetaObject::Connection m_updates;
    QMetaObject::Connection m_failures;
    QString m_latestTranscript;
    // A failure the recogniser reported before a stop was asked for.
    std::optional<QString> m_failureBeforeStop;
    std::optional<QPromise<QString>> m_stopPromise;
    bool m_isCapturing = false;
    bool m_isStopping = false;
};
