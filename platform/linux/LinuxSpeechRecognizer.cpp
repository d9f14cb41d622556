#include "platform/linux/LinuxSpeechRecognizer.h"

#include "platform/SpeechEngine.h"
#include "platform/linux/SpeechModule.h"

LinuxSpeechRecognizer::LinuxSpeechRecognizer(Configuration configuration, QObject *parent)
    : SpeechRecognizer(parent)
    , m_configuration(std::move(configuration))
{
}

LinuxSpeechRecognizer::~LinuxSpeechRecognizer()
{
    // A running command or model load ends soon once told to stop.
    m_stop.request_stop();
}

SpeechCapture &LinuxSpeechRecognizer::capture()
{
    if (!m_capture) {
        m_capture = SpeechModule::load().createCapture(
            m_configuration.modelIdleRelease,
            {[this](quint64 session, const QString &transcript, bool isFinal) {
                 workerUpdated(session, transcript, isFinal);
             },
             [this](quint64 session, const QString &errorText) {
                 workerFailed(session, errorText);
             }});
    }
    return *m_capture;
}

SpeechRecognizer::Access LinuxSpeechRecognizer::speechRecognitionAccess() const
{
    // Nothing to grant here; whether recognition can run is unavailableReason().
    return Access::authorized;
}

SpeechRecognizer::Access LinuxSpeechRecognizer::microphoneAccess() const
{
    try {
        return SpeechModule::load().hasAudioInput() ? Access::authorized : Access::denied;
    } catch (const SpeechRecognizerError &) {
        return Access::denied; // without the module nothing can record
    }
}

void LinuxSpeechRecognizer::requestSpeechRecognitionAccess(std::function<void(bool granted)> answer)
{
    const bool granted = speechRecognitionAccess() == Access::authorized;
    QMetaObject::invokeMethod(
        this, [answer = std::move(answer), granted] { answer(granted); }, Qt::QueuedConnection);
}

void LinuxSpeechRecognizer::requestMicrophoneAccess(std::function<void(bool granted)> answer)
{
    const bool granted = microphoneAccess() == Access::authorized;
    QMetaObject::invokeMethod(
        this, [answer = std::move(answer), granted] { answer(granted); }, Qt::QueuedConnection);
}

QString LinuxSpeechRecognizer::command() const
{
    return m_configuration.recognizerCommand ? m_configuration.recognizerCommand().trimmed() : QString();
}

QString LinuxSpeechRecognizer::unavailableReason() const
{
    return SpeechEngine::unavailableReason(command());
}

void LinuxSpeechRecognizer::start()
{
    cancel();
    const QString recognizerCommand = command();
    const QString reason = SpeechEngine::unavailableReason(recognizerCommand);
    if (!reason.isEmpty())
        throw SpeechRecognizerError(SpeechRecognizerError::Kind::recognitionUnavailable, reason);
    SpeechCapture &recognizer = capture();
    std::stop_source stop;
    const quint64 session = m_session + 1;
    recognizer.start(session, {recognizerCommand, m_configuration.commandTimeLimit}, stop.get_token());
    m_session = session;
    m_stop = stop;
    m_active = true;
    m_finishing = false;
    m_transcribesAfterStop = !recognizerCommand.isEmpty();
}

void LinuxSpeechRecognizer::finishAudio()
{
    if (!m_active || m_finishing)
        return;
    m_finishing = true;
    capture().finish(m_session);
}

void LinuxSpeechRecognizer::cancel()
{
    if (!m_active)
        return;
    m_active = false;
    m_stop.request_stop();
    capture().cancel(m_session);
}

std::optional<std::chrono::milliseconds> LinuxSpeechRecognizer::finalResultTimeLimit() const
{
    if (!m_transcribesAfterStop)
        return std::nullopt;
    return m_configuration.commandTimeLimit;
}

void LinuxSpeechRecognizer::workerUpdated(quint64 session, const QString &transcript, bool isFinal)
{
    if (session != m_session || !m_active)
        return;
    if (isFinal)
        m_active = false;
    Q_EMIT recognitionUpdated(transcript, isFinal);
}

void LinuxSpeechRecognizer::workerFailed(quint64 session, const QString &errorText)
{
    if (session != m_session || !m_active)
        return;
    // A failure during capture is reported again when the stop is answered.
    if (m_finishing)
        m_active = false;
    Q_EMIT recognitionFailed(errorText);
}

std::unique_ptr<SpeechRecognizer> SpeechRecognizer::create(Configuration configuration)
{
    return std::make_unique<LinuxSpeechRecognizer>(std::move(configuration));
}
