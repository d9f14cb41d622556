#pragma once

#include "platform/PcmAudio.h"
#include "platform/SpeechEngine.h"

#include <QAudioDevice>
#include <QObject>
#include <QTimer>

#include <memory>
#include <optional>
#include <stop_token>

class QAudioSource;
class QIODevice;

// Lives on the recogniser's own thread: captures the microphone, feeds the engine and keeps
// the engine (its model) until it has been unused for a while. Every call and signal names its
// session, so that the owner can tell stale answers from current ones.
class SpeechCaptureWorker final : public QObject {
    Q_OBJECT

public:
    explicit SpeechCaptureWorker(std::chrono::milliseconds modelIdleRelease);
    ~SpeechCaptureWorker() override;

    void startSession(quint64 session, const SpeechEngine::Options &options, const QAudioDevice &device,
                      std::stop_token stop);
    void finishSession(quint64 session);
    void cancelSession(quint64 session);

Q_SIGNALS:
    void updated(quint64 session, const QString &transcript, bool isFinal);
    void failed(quint64 session, const QString &errorText);

private:
    void readAudio();
    void feed(const QByteArray &bytes);
    void fail(quint64 session, const QString &errorText);
    void stopCapture();
    void releaseEngine();

    std::chrono::milliseconds m_modelIdleRelease;
    // A child, so that it moves to the worker's thread with it.
    QTimer m_releaseTimer;
    std::unique_ptr<SpeechEngine> m_engine;
    QString m_engineCommand;
    std::unique_ptr<QAudioSource> m_source;
    QIODevice *m_input = nullptr;
    std::optional<PcmConverter> m_converter;
    quint64 m_session = 0;
    bool m_capturing = false;
    std::stop_token m_stop;
    QString m_lastTranscript;
    QString m_failure;
};
