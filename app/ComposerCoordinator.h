#pragma once

#include "composer/ScratchComposer.h"
#include "core/ComposerRequest.h"
#include "core/ComposerResponse.h"
#include "core/DraftStore.h"
#include "quicktasks/QuickTaskSession.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QSet>
#include <QTimer>

#include <optional>

class ComposerSurface;
class DraftKeeper;
class EditorComposer;
class ErrorLogManager;
class QuickTaskManager;
class RequestIntake;
class ScratchWindowFrameStore;
class WindowActivationCoordinator;
class WindowSystem;

// Presents, places and closes the composers and hands the focus back afterwards. It is
// the one holder of the editor request on screen: it takes requests from the intake one
// at a time and has the intake answer them. Scratch composers start quick tasks.
class ComposerCoordinator final : public QObject {
    Q_OBJECT

public:
    ComposerCoordinator(RequestIntake &intake, QuickTaskManager &tasks, WindowSystem &windows,
                        WindowActivationCoordinator &activation, ScratchWindowFrameStore &frames,
                        ErrorLogManager &errorLog, ComposerServices services, QObject *parent = nullptr);
    ~ComposerCoordinator() override;

    // How long after a composer went up the next one is made.
    static constexpr int prepareDelayMs = 250;

    // Opens the oldest waiting request when no editor is on screen; refreshes the queue
    // when one is.
    void processPendingRequests();
    // A scratch composer; a retried task brings its text, attachments, terminal and folder.
    void openScratchComposer(const QString &initialText = QString(),
                             const QList<PromptAttachment> &attachments = {},
                             const std::optional<QuickTaskSourceContext> &sourceContext = std::nullopt,
                             const std::optional<QString> &workingDirectory = std::nullopt);

    const std::optional<ComposerRequest> &currentRequest() const { return m_request; }
    EditorComposer *editorComposer() const { return m_editor; }
    const QList<ScratchComposer *> &scratchComposers() const { return m_scratchComposers; }
    // The terminal in front, which a new quick task belongs to.
    std::optional<QuickTaskSourceContext> frontmostTerminalContext() const;

    // At the end: no more requests are served, and every composer closes without answering.
    void stopServingRequests() { m_terminated = true; }
    void closeAllForTermination();
    // Makes the next editor composer now, hidden and laid out, so a request only has to fill
    // in its text, place it and show it; then, shortly after, the next scratch composer. Called at
    // launch and after each composer is shown.
    void prepareComposers();
    // At launch: drafts of requests that were answered meanwhile are of no more use.
    void forgetDraftsOfAnsweredRequests();
    // At launch: pasted images older than the cutoff that no session, draft or composer names are
    // deleted on a pool thread.
    void sweepImportedAttachments(const QDateTime &cutoff);

Q_SIGNALS:
    // Editor and scratch composers on screen, sent before a new one shows and after one closes.
    void composersOnScreenChanged(int count);
    // Whether any composer is recording a dictation, on every change.
    void voicePromptRecordingChanged(bool recording);

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void present(ComposerSurface &surface, bool restoresScratchFrame);
    QWidget *topmostOpenComposer() const;
    void place(ComposerSurface &surface, bool restoresScratchFrame);
    void answerEditorRequest(ComposerResponse::Disposition disposition, const std::optional<QString> &text);
    // Closes the composer of a request its helper gave up on; nothing is written for it.
    void closeWithdrawnEditor(const std::optional<QString> &copiedText);
    void closeEditor();
    // Keeps a submitted prompt in the history; a failure is logged and changes nothing else.
    void rememberPrompt(const QString &text, const std::optional<QString> &cwd);
    DraftKeeper *keepDraft(QObject *composer, ComposerSurface &surface, const QString &name,
                           std::function<QList<PromptAttachment>()> attachments = {});
    void submitScratch(ScratchComposer *composer, const QString &text,
                       const QList<PromptAttachment> &attachments,
                       const std::optional<QuickTaskPreset> &preset);
    void closeScratch(ScratchComposer *composer);
    void restoreFocus(const std::optional<QString> &executableName, const std::optional<qint32> &pid);
    void presentErrorAlert(ComposerSurface &surface, const QString &message, const QString &errorDescription);
    void noteComposersOnScreen();
    void noteVoicePromptRecording(ComposerSurface *surface, bool recording);

    RequestIntake &m_intake;
    QuickTaskManager &m_tasks;
    WindowSystem &m_windows;
    WindowActivationCoordinator &m_activation;
    ScratchWindowFrameStore &m_frames;
    ErrorLogManager &m_errorLog;
    ComposerServices m_services;
    DraftStore m_drafts;
    std::optional<ComposerRequest> m_request;
    EditorComposer *m_editor = nullptr;
    // Made ahead of time and hidden, for the next request and the next quick task.
    EditorComposer *m_preparedEditor = nullptr;
    ScratchComposer *m_preparedScratch = nullptr;
    QTimer m_prepareSoon;
    DraftKeeper *m_editorDraft = nullptr;
    QHash<ScratchComposer *, DraftKeeper *> m_scratchDrafts;
    QList<ScratchComposer *> m_scratchComposers;
    QHash<ScratchComposer *, std::optional<QuickTaskSourceContext>> m_sourceContexts;
    QSet<ScratchComposer *> m_startingTasks;
    QSet<ComposerSurface *> m_recordingSurfaces;
    // Composer panels in the order they were last activated: the last one is in front.
    QList<QPointer<QWidget>> m_activationOrder;
    bool m_terminated = false;
};
