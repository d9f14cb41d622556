// The speech module: Qt Multimedia's capture and PocketSphinx, loaded by the application on first
// use (SpeechModule::load()).
#include "platform/SpeechRecognizer.h"
#include "platform/linux/PocketSphinxEngine.h"
#include "platform/linux/SpeechCaptureWorker.h"
#include "platform/linux/SpeechModule.h"

#include <QMediaDevices>
#include <QThread>

namespace {

// The worker on a thread of its own; its answers reach the callbacks on the thread that made this.
class ThreadedSpeechCapture final : public SpeechCapture {
public:
    ThreadedSpeechCapture(std::chrono::milliseconds modelIdleRelease, Callbacks callbacks)
        : m_callbacks(std::move(callbacks))
        , m_worker(new SpeechCaptureWorker(modelIdleRelease))
    {
        m_thread.setObjectName(QStringLiteral("Speech recognition"));
        m_worker->moveToThread(&m_thread);
        QObject::connect(m_worker, &SpeechCaptureWorker::updated, &m_context,
                         [this](quint64 session, const QString &transcript, bool isFinal) {
                             m_callbacks.updated(session, transcript, isFinal);
                         });
        QObject::connect(
            m_worker, &SpeechCaptureWorker::failed, &m_context,
            [this](quint64 session, const QString &errorText) { m_callbacks.failed(session, errorText); });
        // Deleted on its own thread, after its event loop has ended.
        QObject::connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
        m_thread.start();
    }

    ~ThreadedSpeechCapture() override
    {
        // A running command or model load ends soon once told to stop (the owner's stop token);
        // the worker, its capture and its model go on its own thread.
        m_thread.quit();
        m_thread.wait();
    }

    void start(quint64 session, const SpeechEngine::Options &options, std::stop_token stop) override
    {
        const QAudioDevice device = QMediaDevices::defaultAudioInput();
        if (device.isNull())
            throw SpeechRecognizerError(SpeechRecognizerError::Kind::captureFailed,
                                        QStringLiteral("Could not start microphone capture: no audio input "
                                                       "device was found."));
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, session, options, device, stop] {
            worker->startSession(session, options, device, stop);
        });
    }

    void finish(quint64 session) override
    {
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, session] { worker->finishSession(session); });
    }

    void cancel(quint64 session) override
    {
        QMetaObject::invokeMethod(m_worker, [worker = m_worker, session] { worker->cancelSession(session); });
    }

private:
    Callbacks m_callbacks;
    // Where the answers are delivered: the thread that made this.
    QObject m_context;
    QThread m_thread;
    SpeechCaptureWorker *m_worker;
};

class LinuxSpeechModule final : public SpeechModule {
public:
    bool hasAudioInput() override { return !QMediaDevices::audioInputs().isEmpty(); }

    std::unique_ptr<SpeechEngine> createBuiltInEngine() override
    {
        return std::make_unique<PocketSphinxEngine>();
    }

    std::unique_ptr<SpeechCapture> createCapture(std::chrono::milliseconds modelIdleRelease,
                                                 SpeechCapture::Callbacks callbacks) override
    {
        return std::make_unique<ThreadedSpeechCapture>(modelIdleRelease, std::move(callbacks));
    }
};

} // namespace

extern "C" __attribute__((visibility("default"))) SpeechModule *tarvel_speech_module()
{
    static LinuxSpeechModule module;
    return &module;
}
