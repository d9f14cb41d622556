#pragma once

#include "composer/ComposerPanelController.h"

#include <QList>
#include <QObject>
#include <QPointer>

#include <memory>
#include <optional>

class DistributedNotificationObserver;
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
                                          const std::optional<ComposerRequest> &request) override;
    void composerPanelControllerDidCancel(ComposerPanelController *controller,
                                          const std::optional<ComposerRequest> &request) override;

    // Hook for quick tasks: how many run now (the status icon blinks while any do).
    void setRunningTaskCount(int count);

private:
    void presentComposer(const std::optional<ComposerRequest> &request, const QString &initialText);
    void positionPanel(ComposerPanelController *controller);
    void closeComposer(ComposerPanelController *controller);
    void restoreFocusAfterClosingComposer(const std::optional<ComposerRequest> &request);
    bool focusTopmostOpenComposerWindow();
    void presentAlert(const QString &message, const QString &informativeText);
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
    QFileSystemWatcher *m_requestsWatcher = nullptr;
    QPointer<ComposerPanelController> m_editorPanelController;
    QList<ComposerPanelController *> m_scratchPanelControllers;
    std::unique_ptr<ErrorsWindow> m_errorsWindow;
    int m_runningTaskCount = 0;
    bool m_terminated = false;
};
