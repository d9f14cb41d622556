#include "voice/VoicePromptBuilder.h"

#include "backends/BackendProfiles.h"
#include "core/TarvelError.h"
#include "settings/AppSettings.h"
#include "voice/PromptRewriteService.h"
#include "voice/VoicePromptAuthorization.h"
#include "voice/VoicePromptDraftError.h"
#include "voice/VoicePromptTranscriber.h"

#include <QPromise>

#include <memory>

namespace {

// Capture failures reach the composer as voice errors, with the failure's own text.
std::exception_ptr asVoiceError(std::exception_ptr error)
{
    try {
        std::rethrow_exception(error);
    } catch (const VoicePromptDraftError &) {
        return error;
    } catch (const TarvelError &other) {
        return std::make_exception_ptr(VoicePromptDraftError::recordingFailed(other.description()));
    } catch (const std::exception &other) {
        return std::make_exception_ptr(
            VoicePromptDraftError::recordingFailed(QString::fromLocal8Bit(other.what())));
    }
}

template<typename T> QFuture<T> failedFuture(const VoicePromptDraftError &error)
{
    QPromise<T> promise;
    QFuture<T> future = promise.future();
    promise.start();
    promise.setException(std::make_exception_ptr(error));
    promise.finish();
    return future;
}

} // namespace

VoicePromptBuilder::VoicePromptBuilder(SpeechRecognizer &recognizer, UserDefaults &defaults, QObject *parent)
    : QObject(parent)
    , m_recognizer(recognizer)
    , m_defaults(defaults)
    , m_transcriber(new VoicePromptTranscriber(recognizer, this))
    , m_rewriter(new PromptRewriteService(this))
{
    // Another composer started dictating on the shared recogniser: this recording is over.
    connect(m_transcriber, &VoicePromptTranscriber::captureTakenOver, this, [this] {
        if (m_state == State::recording)
            cancel();
    });
    connect(m_transcriber, &VoicePromptTranscriber::captureFailed, this, [this] {
        // Later: a recogniser may fail inside its start, before this builder is recording.
        QMetaObject::invokeMethod(
            this,
            [this, capture = m_generation] {
                if (capture == m_generation && m_state == State::recording)
                    Q_EMIT captureFailed();
            },
            Qt::QueuedConnection);
    });
}

VoicePromptBuilder::~VoicePromptBuilder() = default;

QFuture<void> VoicePromptBuilder::startRecording()
{
    if (m_state != State::idle || m_isStarting) {
        QPromise<void> nothing;
        nothing.start();
        nothing.finish();
        return nothing.future();
    }
    m_isStarting = true;
    const quint64 start = ++m_generation;
    auto promise = std::make_shared<QPromise<void>>();
    promise->start();
    VoicePromptAuthorization::requestVoiceCaptureAccessIfNeeded(m_recognizer)
        .then(this,
              [this, start, promise] {
                  m_isStarting = false;
                  if (start != m_generation)
                      throw VoicePromptDraftError::cancelled();
                  m_transcriber->startRecording();
                  setState(State::recording);
                  promise->finish();
              })
        .onFailed(this, [this, promise] {
            m_isStarting = false;
            promise->setException(asVoiceError(std::current_exception()));
            promise->finish();
        });
    return promise->future();
}

QFuture<QString>
VoicePromptBuilder::stopRecordingAndBuildPrompt(const QString &workingDirectory,
                                                const std::optional<QuickTaskPreset> &preferredPreset)
{
    if (m_state != State::recording)
        return failedFuture<QString>(VoicePromptDraftError::cancelled());
    const quint64 build = ++m_generation;
    setState(State::transcribing);
    auto promise = std::make_shared<QPromise<QString>>();
    promise->start();
    const auto fail = [this, build, promise](std::exception_ptr error) {
        finishBuild(build);
        promise->setException(std::move(error));
        promise->finish();
    };
    m_transcriber->stopRecording()
        .then(this,
              [this, build, workingDirectory, preferredPreset, promise, fail](const QString &transcript) {
                  const QString trimmed = transcript.trimmed();
                  if (trimmed.isEmpty())
                      throw VoicePromptDraftError::emptyTranscription();
                  if (build != m_generation)
                      throw VoicePromptDraftError::cancelled();
                  setState(State::processing);
                  m_rewriter
                      ->rewritePrompt(trimmed, workingDirectory,
                                      preferredPromptRewritePreset(preferredPreset), backend())
                      .then(this,
                            [this, build, promise](const QString &draft) {
                                finishBuild(build);
                                promise->addResult(draft);
                                promise->finish();
                            })
                      .onFailed(this, [fail] { fail(std::current_exception()); });
              })
        .onFailed(this, [fail] { fail(asVoiceError(std::current_exception())); });
    return promise->future();
}

void VoicePromptBuilder::cancel()
{
    ++m_generation;
    m_transcriber->cancel();
    m_rewriter->cancel();
    setState(State::idle);
}

QuickTaskPreset
VoicePromptBuilder::preferredPromptRewritePreset(const std::optional<QuickTaskPreset> &preferredPreset) const
{
    const AppSettings settings(m_defaults);
    const QuickTaskCLIBackend current = settings.quickTaskCLIBackend();
    const QList<QuickTaskPreset::Model> models = BackendProfiles::of(current).availableModels();
    const auto usable = [&](const QuickTaskPreset &preset) {
        return preset.isConfigured(current) && preset.isAvailable(models, current);
    };
    if (preferredPreset && usable(*preferredPreset))
        return *preferredPreset;
    if (const QuickTaskPreset voice = settings.voicePromptRewritePreset(); usable(voice))
        return voice;
    return {};
}

bool VoicePromptBuilder::isVoicePromptAvailable(const std::optional<QuickTaskPreset> &preferredPreset) const
{
    return preferredPromptRewritePreset(preferredPreset).isConfigured(backend());
}

void VoicePromptBuilder::setState(State state)
{
    if (m_state == state)
        return;
    m_state = state;
    Q_EMIT stateChanged(state);
}

QuickTaskCLIBackend VoicePromptBuilder::backend() const
{
    return AppSettings(m_defaults).quickTaskCLIBackend();
}

void VoicePromptBuilder::finishBuild(quint64 build)
{
    if (build == m_generation)
        setState(State::idle);
}
