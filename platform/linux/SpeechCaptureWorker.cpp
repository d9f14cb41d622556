#include "platform/linux/SpeechCaptureWorker.h"

#include <QAudioSource>

#include <malloc.h>

namespace {

std::optional<PcmConverter::SampleFormat> converterFormat(QAudioFormat::SampleFormat format)
{
    switch (format) {
    case QAudioFormat::UInt8:
        return PcmConverter::SampleFormat::uint8;
    case QAudioFormat::Int16:
        return PcmConverter::SampleFormat::int16;
    case QAudioFormat::Int32:
        return PcmConverter::SampleFormat::int32;
    case QAudioFormat::Float:
        return PcmConverter::SampleFormat::float32;
    default:
        return std::nullopt;
    }
}

const QString captureFailedText = QStringLiteral("Could not start microphone capture.");

} // namespace

SpeechCaptureWorker::SpeechCaptureWorker(std::chrono::milliseconds modelIdleRelease)
    : m_modelIdleRelease(modelIdleRelease)
    , m_releaseTimer(this)
{
    m_releaseTimer.setSingleShot(true);
    connect(&m_releaseTimer, &QTimer::timeout, this, &SpeechCaptureWorker::releaseEngine);
}

SpeechCaptureWorker::~SpeechCaptureWorker()
{
    stopCapture();
}

void SpeechCaptureWorker::startSession(quint64 session, const SpeechEngine::Options &options,
                                       const QAudioDevice &device, std::stop_token stop)
{
    stopCapture();
    m_releaseTimer.stop();
    m_session = session;
    m_stop = std::move(stop);
    m_lastTranscript.clear();
    m_failure.clear();
    if (m_stop.stop_requested())
        return;

    QAudioFormat format;
    format.setSampleRate(SpeechEngine::sampleRate);
    format.setChannelCount(1);
    format.setSampleFormat(QAudioFormat::Int16);
    if (!device.isFormatSupported(format))
        format = device.preferredFormat();
    const std::optional<PcmConverter::SampleFormat> sampleFormat = converterFormat(format.sampleFormat());
    if (!sampleFormat || format.sampleRate() <= 0 || format.channelCount() <= 0) {
        fail(session, captureFailedText);
        return;
    }
    m_converter.emplace(format.sampleRate(), format.channelCount(), *sampleFormat);

    // Capture first: while the model loads, the sound system holds what is said.
    m_source = std::make_unique<QAudioSource>(device, format);
    connect(m_source.get(), &QAudioSource::stateChanged, this, [this, session](QAudio::State state) {
        if (state == QAudio::StoppedState && m_capturing && m_source &&
            m_source->error() != QAudio::NoError && session == m_session) {
            stopCapture();
            fail(session, captureFailedText);
        }
    });
    m_input = m_source->start();
    if (!m_input || m_source->error() != QAudio::NoError) {
        stopCapture();
        fail(session, captureFailedText);
        return;
    }
    m_capturing = true;

    try {
        if (m_engine && m_engineCommand != options.command)
            m_engine.reset();
        if (!m_engine) {
            m_engine = SpeechEngine::create(options);
            m_engineCommand = options.command;
        }
        m_engine->beginUtterance();
    } catch (const TarvelError &error) {
        stopCapture();
        m_engine.reset();
        fail(session, error.description());
        return;
    }
    connect(m_input, &QIODevice::readyRead, this, &SpeechCaptureWorker::readAudio);
    readAudio();
}

void SpeechCaptureWorker::readAudio()
{
    if (m_input && m_capturing)
        feed(m_input->readAll());
}

void SpeechCaptureWorker::feed(const QByteArray &bytes)
{
    if (bytes.isEmpty() || !m_engine || !m_converter)
        return;
    const QByteArray samples = m_converter->convert(bytes);
    const QString transcript = m_engine->feed(reinterpret_cast<const qint16 *>(samples.constData()),
                                              samples.size() / qsizetype(sizeof(qint16)));
    if (transcript != m_lastTranscript) {
        m_lastTranscript = transcript;
        Q_EMIT updated(m_session, transcript, false);
    }
}

void SpeechCaptureWorker::finishSession(quint64 session)
{
    if (session != m_session)
        return;
    // A capture that failed early answers its stop with that failure.
    if (!m_capturing) {
        if (!m_failure.isEmpty())
            Q_EMIT failed(session, m_failure);
        return;
    }
    // What the device still holds belongs to the utterance.
    if (m_source) {
        m_source->suspend();
        readAudio();
    }
    stopCapture();
    if (!m_engine)
        return;
    try {
        const QString transcript = m_engine->finishUtterance(m_stop);
        if (!m_stop.stop_requested())
            Q_EMIT updated(session, transcript, true);
    } catch (const TarvelError &error) {
        if (!m_stop.stop_requested())
            Q_EMIT failed(session, error.description());
    }
    m_releaseTimer.start(m_modelIdleRelease);
}

void SpeechCaptureWorker::cancelSession(quint64 session)
{
    if (session != m_session)
        return;
    stopCapture();
    m_releaseTimer.start(m_modelIdleRelease);
}

void SpeechCaptureWorker::fail(quint64 session, const QString &errorText)
{
    m_failure = errorText;
    Q_EMIT failed(session, errorText);
}

void SpeechCaptureWorker::stopCapture()
{
    m_capturing = false;
    if (m_source) {
        m_source->disconnect(this);
        if (m_input)
            m_input->disconnect(this);
        m_source->stop();
    }
    m_input = nullptr;
    m_source.reset();
}

void SpeechCaptureWorker::releaseEngine()
{
    if (m_capturing)
        return;
    m_engine.reset();
    // The model is many small blocks; without a trim the allocator keeps ~150 MB of them.
    malloc_trim(0);
}
