#include "platform/linux/LinuxSpeechRecognizer.h"

#include "platform/SpeechEngine.h"
#include "platform/linux/SpeechCaptureWorker.h"

#include <QMediaDevices>

LinuxSpeechRecognizer::LinuxSpeechRecognizer(Configuration configuration, QObject *parent)
    : SpeechRecognizer(parent)
    , m_configuration(std::move(configuration))
    , m_worker(new SpeechCaptureWorker(m_configuration.modelIdleRelease))
{
    m_thread.setObjectName(QStringLiteral("Speech recognition"));
    m_worker->moveToThread(&m_thread);
    connect(m_worker, &SpeechCaptureWorker::updated, this, &LinuxSpeechRecognizer::workerUpdated);
    connect(m_worker, &SpeechCaptureWorker::failed, this, &LinuxSpeechRecognizer::workerFailed);
    // Deleted on its own thread, after its event loop has ended.
    connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_thread.start();
}

LinuxSpeechRecognizer::~LinuxSpeechRecognizer()
{
    // A running command or model load ends soon once told to stop; the worker (its capture and
    // its model) goes on its own thread.
    m_stop.request_stop();
    m_thread.quit();
    m_thread.wait();
}

SpeechRecognizer::Access LinuxSpeechRecognizer::speechRecognitionAccess() const
{
    // Nothing to grant here; whether recognition can run is unavailableReason().
    return Access::authorized;
}

SpeechRecognizer::Access LinuxSpeechRecognizer::microphoneAccess() const
{
    return QMediaDevices::audioInputs().isEmpty() ? Access::denied : Access::authorized;
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
    const QAudioDevice device = QMediaDevices::defaultAudioInput();
    if (device.isNull())
        throw SpeechRecognizerError(
            SpeechRecognizerError::Kind::captureFailed,
            QStringLiteral("Could not start microphone capture: no audio input device "
                           "was found."));
    m_stop = std::stop_source();
    m_active = true;
    m_finishing = false;
    m_transcribesAfterStop = !recognizerCommand.isEmpty();
    const quint64 session = ++m_session;
    const SpeechEngine::Options options{recognizerCommand, m_configuration.commandTimeLimit};
    QMetaObject::invokeMethod(m_worker,
                              [worker = m_worker, session, options, device, stop = m_stop.get_token()] {
                                  worker->startSession(session, options, device, stop);
                              });
}

void LinuxSpeechRecognizer::finishAudio()
{
    if (!m_active || m_finishing)
        return;
    m_finishing = true;
    const quint64 session = m_session;
    QMetaObject::invokeMethod(m_worker, [worker = m_worker, session] { worker->finishSession(session); });
}

void LinuxSpeechRecognizer::cancel()
{
    if (!m_active)
        return;
    m_active = false;
    m_stop.request_stop();
    const quint64 session = m_session;
    QMetaObject::invokeMethod(m_worker, [worker = m_worker, session] { worker->cancelSession(session); });
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
