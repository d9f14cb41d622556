#include "voice/VoicePromptTranscriber.h"

#include "platform/SpeechRecognizer.h"
#include "voice/VoicePromptDraftError.h"

#include <QHash>

#include <utility>

namespace {

// Which transcriber captures on each recogniser now (main thread only).
QHash<const SpeechRecognizer *, VoicePromptTranscriber *> &captureOwners()
{
    static QHash<const SpeechRecognizer *, VoicePromptTranscriber *> owners;
    return owners;
}

bool hasSpeech(const QString &transcript)
{
    return !transcript.trimmed().isEmpty();
}

QFuture<QString> failedFuture(const VoicePromptDraftError &error)
{
    QPromise<QString> promise;
    QFuture<QString> future = promise.future();
    promise.start();
    promise.setException(std::make_exception_ptr(error));
    promise.finish();
    return future;
}

} // namespace

VoicePromptTranscriber::VoicePromptTranscriber(SpeechRecognizer &recognizer, QObject *parent)
    : QObject(parent)
    , m_recognizer(recognizer)
{
    m_stopFallbackTimer.setSingleShot(true);
    connect(&m_stopFallbackTimer, &QTimer::timeout, this,
            &VoicePromptTranscriber::completeStopIfNeededWithFallback);
}

VoicePromptTranscriber::~VoicePromptTranscriber()
{
    cancel();
}

void VoicePromptTranscriber::startRecording()
{
    cancel();
    if (const QString reason = m_recognizer.unavailableReason(); !reason.isEmpty())
        throw VoicePromptDraftError::speechRecognitionUnavailable(reason);

    if (VoicePromptTranscriber *previous = captureOwners().value(&m_recognizer))
        previous->yieldCapture();
    captureOwners().insert(&m_recognizer, this);
    m_latestTranscript.clear();
    m_failureBeforeStop.reset();
    m_isStopping = false;
    m_updates = connect(&m_recognizer, &SpeechRecognizer::recognitionUpdated, this,
                        &VoicePromptTranscriber::handleRecognitionUpdate);
    m_failures = connect(&m_recognizer, &SpeechRecognizer::recognitionFailed, this,
                         &VoicePromptTranscriber::handleRecognitionFailure);
    m_isCapturing = true;
    try {
        m_recognizer.start();
    } catch (const SpeechRecognizerError &error) {
        cancel();
        if (error.kind() == SpeechRecognizerError::Kind::recognitionUnavailable)
            throw VoicePromptDraftError::speechRecognitionUnavailable(error.description());
        throw VoicePromptDraftError::recordingFailed(QStringLiteral("Could not start microphone capture."));
    }
}

QFuture<QString> VoicePromptTranscriber::stopRecording()
{
    if (!m_isCapturing || m_isStopping)
        return failedFuture(VoicePromptDraftError::cancelled());
    m_isStopping = true;
    m_stopPromise.emplace();
    m_stopPromise->start();
    QFuture<QString> future = m_stopPromise->future();
    if (m_failureBeforeStop) {
        // The recogniser has given up already; nothing more will come.
        handleRecognitionFailure(*m_failureBeforeStop);
        return future;
    }
    const std::optional<std::chrono::milliseconds> limit = m_recognizer.finalResultTimeLimit();
    m_stopFallbackTimer.start(limit ? *limit + std::chrono::milliseconds(finalResultLimitGraceMilliseconds)
                                    : std::chrono::milliseconds(finalResultWaitMilliseconds));
    m_recognizer.finishAudio();
    return future;
}

void VoicePromptTranscriber::cancel()
{
    completeStop(nullptr, std::make_exception_ptr(VoicePromptDraftError::cancelled()));
}

void VoicePromptTranscriber::yieldCapture()
{
    cancel();
    Q_EMIT captureTakenOver();
}

void VoicePromptTranscriber::handleRecognitionUpdate(const QString &transcript, bool isFinal)
{
    m_latestTranscript = transcript;
    if (m_isStopping && isFinal)
        completeStop(&m_latestTranscript, nullptr);
}

void VoicePromptTranscriber::handleRecognitionFailure(const QString &errorText)
{
    if (!m_isStopping) {
        // Kept for the stop, which the owner asks for at once: the words heard so far may
        // still be enough.
        const bool first = !m_failureBeforeStop;
        m_failureBeforeStop = errorText;
        if (first)
            Q_EMIT captureFailed();
        return;
    }
    if (hasSpeech(m_latestTranscript))
        completeStop(&m_latestTranscript, nullptr);
    else
        completeStop(nullptr, std::make_exception_ptr(VoicePromptDraftError::recordingFailed(errorText)));
}

void VoicePromptTranscriber::completeStopIfNeededWithFallback()
{
    if (!m_stopPromise)
        return;
    if (hasSpeech(m_latestTranscript))
        completeStop(&m_latestTranscript, nullptr);
    else
        completeStop(nullptr, std::make_exception_ptr(VoicePromptDraftError::emptyTranscription()));
}

void VoicePromptTranscriber::completeStop(const QString *transcript, std::exception_ptr error)
{
    m_stopFallbackTimer.stop();
    if (m_isCapturing) {
        disconnect(m_updates);
        disconnect(m_failures);
        m_recognizer.cancel();
        if (captureOwners().value(&m_recognizer) == this)
            captureOwners().remove(&m_recognizer);
    }
    m_isCapturing = false;
    m_isStopping = false;
    m_failureBeforeStop.reset();
    if (!m_stopPromise)
        return;
    // Taken before it is answered: whoever waits may start the next capture right away.
    QPromise<QString> promise = std::move(*m_stopPromise);
    m_stopPromise.reset();
    if (transcript)
        promise.addResult(*transcript);
    else
        promise.setException(std::move(error));
    promise.finish();
}
