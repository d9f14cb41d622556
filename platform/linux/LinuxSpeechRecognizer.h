#pragma once

#include "platform/SpeechRecognizer.h"

#include <memory>
#include <stop_token>

class SpeechCapture;

// Captures the default microphone with Qt Multimedia and recognises it with PocketSphinx, or
// with the user's recogniser command when one is set. Both live in the speech module, loaded at
// the first capture or microphone check; capture, model loading and recognition run on a thread
// of their own, and the signals arrive on this object's thread.
class LinuxSpeechRecognizer final : public SpeechRecognizer {
    Q_OBJECT

public:
    explicit LinuxSpeechRecognizer(Configuration configuration, QObject *parent = nullptr);
    ~LinuxSpeechRecognizer() override;

    Access speechRecognitionAccess() const override;
    Access microphoneAccess() const override;
    void requestSpeechRecognitionAccess(std::function<void(bool granted)> answer) override;
    void requestMicrophoneAccess(std::function<void(bool granted)> answer) override;
    QString unavailableReason() const override;

    void start() override;
    void finishAudio() override;
    void cancel() override;
    std::optional<std::chrono::milliseconds> finalResultTimeLimit() const override;

private:
    QString command() const;
    void workerUpdated(quint64 session, const QString &transcript, bool isFinal);
    void workerFailed(quint64 session, const QString &errorText);

    SpeechCapture &capture();

    Configuration m_configuration;
    std::unique_ptr<SpeechCapture> m_capture;
    quint64 m_session = 0;
    bool m_active = false;
    bool m_finishing = false;
    // The user's command transcribes only after the stop.
    bool m_transcribesAfterStop = false;
    std::stop_source m_stop;
};
