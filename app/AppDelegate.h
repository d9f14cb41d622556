#pragma once

#include "app/PlatformServices.h"
#include "shortcuts/Shortcut.h"

#include <QObject>

#include <memory>
#include <optional>

class AlertPresenter;
class AppearanceController;
class ComposerCoordinator;
class EditorSetupOffer;
class ErrorLogManager;
class ErrorsWindow;
class GlobalShortcutRegistrar;
class KeyboardGate;
class KeyboardShortcuts;
class PermissionCenter;
class PermissionPlatform;
class PermissionsWindow;
class PreferencesWindow;
class PromptHistory;
class SpellCheckService;
class QFileSystemWatcher;
class QuickTaskManager;
class QuitPolicy;
class RemoteRequestServer;
class RequestIntake;
class ScratchWindowFrameStore;
class StatusItemController;
class TrayMenuPresenter;
class UserDefaults;
class WindowActivationCoordinator;

// The composition root: makes the application's parts from the platform's services and
// wires them together. What happens lives in the parts: requests and composers in the
// ComposerCoordinator, the tray menu in the TrayMenuPresenter, ending in the QuitPolicy, the
// editor set-up in the EditorSetupOffer.
class AppDelegate final : public QObject {
    Q_OBJECT

public:
    AppDelegate(PlatformServices platform, ErrorLogManager &errorLog, UserDefaults &defaults,
                QObject *parent = nullptr);
    ~AppDelegate() override;

    void applicationDidFinishLaunching();
    void openScratchComposer();

    ComposerCoordinator &composers() const { return *m_composers; }
    QuitPolicy &quitPolicy() const { return *m_quitPolicy; }

private:
    void openErrors();
    void openPreferences();
    void openPermissions();
    PreferencesWindow &preferencesWindow();
    QString registerGlobalShortcut(const std::optional<Shortcut> &shortcut);
    // Where the desktop binds system-wide keys itself (sway, GNOME without the portal), how the user
    // binds the stored (or given) shortcut there; empty where Tarvel registers it itself.
    QString manualShortcutBinding(const std::optional<Shortcut> &shortcut) const;
    void refreshGlobalShortcutRemark();
    void handleDebugWindowRequest(const QMap<QString, QString> &userInfo);
    void finishLaunching();
    void listenForRequests();
    void stopListening();

    PlatformServices m_platform;
    ErrorLogManager &m_errorLog;
    UserDefaults &m_defaults;
    // Before every window that reports to it.
    std::unique_ptr<AppearanceController> m_appearance;
    std::unique_ptr<KeyboardGate> m_keyboard;
    std::unique_ptr<AlertPresenter> m_alerts;
    std::unique_ptr<PermissionPlatform> m_permissionPlatform;
    std::unique_ptr<PermissionCenter> m_permissions;
    std::unique_ptr<KeyboardShortcuts> m_shortcuts;
    // After the store it follows, so it goes first.
    std::unique_ptr<GlobalShortcutRegistrar> m_globalShortcuts;
    std::unique_ptr<ScratchWindowFrameStore> m_scratchFrameStore;
    std::unique_ptr<WindowActivationCoordinator> m_activation;
    // Before the intake, which answers through it until the end.
    std::unique_ptr<RemoteRequestServer> m_remoteRequests;
    std::unique_ptr<RequestIntake> m_intake;
    std::unique_ptr<QuickTaskManager> m_quickTaskManager;
    // Before the composers, which use them.
    std::unique_ptr<PromptHistory> m_history;
    std::unique_ptr<SpellCheckService> m_spelling;
    std::unique_ptr<ComposerCoordinator> m_composers;
    std::unique_ptr<TrayMenuPresenter> m_trayMenu;
    std::unique_ptr<StatusItemController> m_statusItem;
    std::unique_ptr<QuitPolicy> m_quitPolicy;
    std::unique_ptr<EditorSetupOffer> m_editorSetup;
    QFileSystemWatcher *m_requestsWatcher = nullptr;
    std::unique_ptr<ErrorsWindow> m_errorsWindow;
    std::unique_ptr<PreferencesWindow> m_preferencesWindow;
    std::unique_ptr<PermissionsWindow> m_permissionsWindow;
};
