#include "voice/PromptRewriteService.h"

#include "backends/BackendProfiles.h"
#include "quicktasks/ProcessGroupTask.h"
#include "quicktasks/QuickTaskError.h"
#include "quicktasks/TaskCLIExecutableLocator.h"
#include "voice/PromptRewriteOutput.h"
#include "voice/VoicePromptDraftError.h"

#include <QPointer>
#include <QPromise>

#include <utility>
#include <variant>

const QString PromptRewriteService::instructionText = QStringLiteral(
    "Rewrite the user's dictated notes into a clean prompt for a terminal coding assistant.\n"
    "\n"
    "Requirements:\n"
    "- Preserve the user's actual intent, constraints, technical details, file paths, filenames, and open "
    "questions.\n"
    "- Remove filler, false starts, repetitions, and obvious speech-recognition mistakes when the intended "
    "meaning is clear.\n"
    "- Organize the result into a concise prompt that another CLI run can execute directly.\n"
    "- Do not answer the request.\n"
    "- Do not add new requirements, assumptions, or capabilities.\n"
    "- Output only the rewritten prompt text.\n"
    "\n"
    "Dictated notes:\n");

struct PromptRewriteService::Runtime {
    Runtime(QuickTaskCLIBackend backend, QString transcript)
        : backend(backend)
        , transcript(std::move(transcript))
        , output(backend)
    {
        promise.start();
    }

    QuickTaskCLIBackend backend;
    QString transcript;
    // A child of the service, deleted later: it finishes from one of its own signals.
    QPointer<ProcessGroupTask> process;
    PromptRewriteOutput output;
    bool cancelled = false;
    bool finished = false;
    QPromise<QString> promise;
};

namespace {

QFuture<QString> failedFuture(std::exception_ptr error)
{
    QPromise<QString> promise;
    QFuture<QString> future = promise.future();
    promise.start();
    promise.setException(std::move(error));
    promise.finish();
    return future;
}

} // namespace

PromptRewriteService::PromptRewriteService(QObject *parent)
    : QObject(parent)
{
}

PromptRewriteService::~PromptRewriteService()
{
    if (const std::shared_ptr<Runtime> runtime = m_runtime)
        finish(runtime, std::make_exception_ptr(VoicePromptDraftError::cancelled()));
}

QFuture<QString> PromptRewriteService::rewritePrompt(const QString &transcript,
                                                     const QString &workingDirectory,
                                                     const QuickTaskPreset &preset,
                                                     QuickTaskCLIBackend backend)
{
    if (!preset.isConfigured(backend))
        return failedFuture(std::make_exception_ptr(VoicePromptDraftError::promptRewriteModelUnavailable()));
    cancel();

    auto runtime = std::make_shared<Runtime>(backend, transcript);
    m_runtime = runtime;
    QFuture<QString> future = runtime->promise.future();

    const QStringList arguments =
        BackendProfiles::of(backend).rewriteArguments(instructionText + transcript, workingDirectory, preset);
    TaskCLIExecutableLocator::prepareLaunch(backend)
        .then(this,
              [this, runtime, arguments, workingDirectory](const QuickTaskLaunchTarget &target) {
                  start(runtime, target, arguments, workingDirectory);
              })
        .onFailed(this, [this, runtime] { finish(runtime, std::current_exception()); });
    return future;
}

void PromptRewriteService::start(const std::shared_ptr<Runtime> &runtime, const QuickTaskLaunchTarget &target,
                                 const QStringList &arguments, const QString &workingDirectory)
{
    if (runtime->finished)
        return; // cancelled while the backend was being checked
    auto *process =
        new ProcessGroupTask(target.executablePath, arguments, workingDirectory, target.environment, this);
    runtime->process = process;
    connect(process, &ProcessGroupTask::standardOutputReceived, this, [runtime](const QByteArray &bytes) {
        runtime->output.consume(OutputStream::standardOutput, bytes);
    });
    connect(process, &ProcessGroupTask::standardErrorReceived, this, [runtime](const QByteArray &bytes) {
        runtime->output.consume(OutputStream::standardError, bytes);
    });
    connect(process, &ProcessGroupTask::finished, this,
            [this, runtime](int exitStatus) { complete(runtime, exitStatus); });
    try {
        process->run();
    } catch (const TarvelError &error) {
        process->deleteLater();
        finish(runtime, std::make_exception_ptr(VoicePromptDraftError::promptRewriteFailed(
                            runtime->transcript, error.description())));
    }
}

void PromptRewriteService::complete(const std::shared_ptr<Runtime> &runtime, int exitStatus)
{
    if (runtime->process)
        runtime->process->deleteLater();
    runtime->output.finish();
    if (runtime->cancelled) {
        finish(runtime, std::make_exception_ptr(VoicePromptDraftError::cancelled()));
        return;
    }
    std::variant<QString, VoicePromptDraftError> outcome =
        runtime->output.outcome(exitStatus, runtime->transcript);
    if (const QString *draft = std::get_if<QString>(&outcome))
        finish(runtime, *draft);
    else
        finish(runtime, std::make_exception_ptr(std::get<VoicePromptDraftError>(outcome)));
}

void PromptRewriteService::cancel()
{
    if (!m_runtime)
        return;
    const std::shared_ptr<Runtime> runtime = m_runtime;
    runtime->cancelled = true;
    if (runtime->process && runtime->process->hasStarted()) {
        // Its exit, now or already queued, completes the rewrite as cancelled.
        runtime->process->stop(StopSchedules::promptRewrite());
        return;
    }
    // Still checking the backend: nothing runs yet, so there is nothing to wait for.
    finish(runtime, std::make_exception_ptr(VoicePromptDraftError::cancelled()));
}

void PromptRewriteService::finish(const std::shared_ptr<Runtime> &runtime, std::exception_ptr error)
{
    if (!release(runtime))
        return;
    runtime->promise.setException(std::move(error));
    runtime->promise.finish();
}

void PromptRewriteService::finish(const std::shared_ptr<Runtime> &runtime, const QString &draft)
{
    if (!release(runtime))
        return;
    runtime->promise.addResult(draft);
    runtime->promise.finish();
}

bool PromptRewriteService::release(const std::shared_ptr<Runtime> &runtime)
{
    if (runtime->finished)
        return false;
    runtime->finished = true;
    // Before the result goes out: a continuation may start the next rewrite right away.
    if (m_runtime == runtime)
        m_runtime.reset();
    return true;
}
