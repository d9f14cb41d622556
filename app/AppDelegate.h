#pragma once

#include "composer/ComposerPanelController.h"
#include "quicktasks/QuickTaskSession.h"

#include <QHash>
#include <QSet>

#include <QList>
#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

class Clipboard;
class DistributedNotificationObserver;
class FileOpener;
class KeyboardShortcuts;
class QuickTaskManager;
class QuickTaskMenuItemView;
class UserNotificationCenter;
class ErrorLogManager;
class ErrorsWindow;
class QFileSystemWatcher;
class RequestIntake;
class ScratchWindowFrameStore;
class StatusItemController;
class UserDefaults;
class WindowActivationCoordinator;
class WindowSystem;

// The application's one long-lived controller: it starts the system, serves editor
// requests one composer at a time, hosts scratch composers, runs the status menu and
// guards quitting.
class AppDelegate final : public QObject, public ComposerPanelControllerDelegate {
    Q_OBJECT

public:
    AppDelegate(ErrorLogManager &errorLog, UserDefaults &defaults, QObject *parent = nullptr);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    void processPendingRequests();
    void openScratchComposer();

    // Asks for confirmation when quitting would stop or cancel something.
    bool applicationShouldTerminate();
    void applicationWillTerminate();
    void quit();

    RequestIntake &intake() const { return *m_intake; }
    StatusItemController &statusItem() const { return *m_statusItem; }
    ComposerPanelController *editorPanelController() const { return m_editorPanelController; }
    const QList<ComposerPanelController *> &scratchPanelControllers() const
    {
        return m_scratchPanelControllers;
    }

    void composerPanelControllerDidSubmit(ComposerPanelController *controller, const QString &text,
                                          const QList<PromptAttachment> &attachments,
                                          const std::optional<QuickTaskPreset> &preset,
                                          const std::optional<ComposerRequest> &request) override;
    void composerPanelControllerDidCancel(ComposerPanelController *controller,
                                          const std::optional<ComposerRequest> &request) override;

    QuickTaskManager &quickTaskManager() const { return *m_quickTaskManager; }

private:
    void presentComposer(const std::optional<ComposerRequest> &request, const QString &initialText,
                         const QList<PromptAttachment> &initialAttachments = {},
                         const std::optional<QuickTaskSourceContext> &sourceContext = std::nullopt);
    void positionPanel(ComposerPanelController *controller);
    void closeComposer(ComposerPanelController *controller);
    void closeScratchComposer(ComposerPanelController *controller);
    void restoreFocusAfterClosingComposer(const std::optional<ComposerRequest> &request,
                                          const std::optional<QuickTaskSourceContext> &sourceContext);
    void submitScratchComposer(ComposerPanelController *controller, const QString &text,
                               const QList<PromptAttachment> &attachments,
                               const std::optional<QuickTaskPreset> &preset);
    void presentErrorAlert(const QString &message, const QString &errorDescription, const QString &source);
    QWidget *makeSessionRow(const QUuid &sessionId, QWidget *parent);
    void refreshSessionRows();
    void quickTaskStateChanged();
    bool focusTopmostOpenComposerWindow();
    void presentAlert(const QString &message, const QString &informativeText);
    std::optional<QuickTaskSourceContext> frontmostTerminalContext() const;
    void openErrors();
    void watchRequestsFolder();

    ErrorLogManager &m_errorLog;
    UserDefaults &m_defaults;
    std::unique_ptr<WindowSystem> m_windowSystem;
    std::unique_ptr<RequestIntake> m_intake;
    std::unique_ptr<StatusItemController> m_statusItem;
    std::unique_ptr<WindowActivationCoordinator> m_activation;
    std::unique_ptr<ScratchWindowFrameStore> m_scratchFrameStore;
    std::unique_ptr<DistributedNotificationObserver> m_notificationObserver;
    std::unique_ptr<KeyboardShortcuts> m_shortcuts;
    std::unique_ptr<UserNotificationCenter> m_notifications;
    std::unique_ptr<Clipboard> m_clipboard;
    std::unique_ptr<FileOpener> m_fileOpener;
    std::unique_ptr<QuickTaskManager> m_quickTaskManager;
    QHash<QUuid, QPointer<QuickTaskMenuItemView>> m_sessionRows;
    QHash<ComposerPanelController *, std::optional<QuickTaskSourceContext>> m_scratchSourceContexts;
    QSet<ComposerPanelController *> m_startingTasks;
    QFileSystemWatcher *m_requestsWatcher = nullptr;
    QPointer<ComposerPanelController> m_editorPanelController;
    QList<ComposerPanelController *> m_scratchPanelControllers;
    std::unique_ptr<ErrorsWindow> m_errorsWindow;
    bool m_terminated = false;
};
