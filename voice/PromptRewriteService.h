#pragma once

#include "backends/QuickTaskCLIBackend.h"
#include "settings/QuickTaskPreset.h"

#include <QFuture>
#include <QObject>
#include <QString>
#include <QStringList>

#include <exception>
#include <memory>

struct QuickTaskLaunchTarget;

// Turns a dictated transcript into a prompt draft by running the chosen backend once, with
// a fixed instruction text followed by the transcript. One rewrite at a time: starting
// another cancels the one in flight. Lives on the main thread.
class PromptRewriteService final : public QObject {
    Q_OBJECT

public:
    // What the backend is asked to do; the transcript follows directly after it.
    static const QString instructionText;

    explicit PromptRewriteService(QObject *parent = nullptr);
    // A rewrite still in flight ends cancelled; its process group is killed.
    ~PromptRewriteService() override;

    // The future gives the draft, or fails with a VoicePromptDraftError
    // (promptRewriteModelUnavailable, promptRewriteFailed carrying the transcript, or
    // cancelled) or with the QuickTaskError of finding and verifying the backend. It
    // delivers exactly one result.
    QFuture<QString> rewritePrompt(const QString &transcript, const QString &workingDirectory,
                                   const QuickTaskPreset &preset, QuickTaskCLIBackend backend);
    // Ends the rewrite in flight, if any, with cancelled: SIGINT and SIGTERM to its process
    // group at once, SIGKILL after 0.6 s if it still runs.
    void cancel();
    bool isRewriting() const noexcept { return m_runtime != nullptr; }

private:
    struct Runtime;

    void start(const std::shared_ptr<Runtime> &runtime, const QuickTaskLaunchTarget &target,
               const QStringList &arguments, const QString &workingDirectory);
    void complete(const std::shared_ptr<Runtime> &runtime, int exitStatus);
    // Each result is delivered once; later ones are dropped.
    void finish(const std::shared_ptr<Runtime> &runtime, std::exception_ptr error);
    void finish(const std::shared_ptr<Runtime> &runtime, const QString &draft);
    bool release(const std::shared_ptr<Runtime> &runtime);

    std::shared_ptr<Runtime> m_runtime;
};
