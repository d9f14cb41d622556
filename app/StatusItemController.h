#pragma once

#include "app/StatusMenuModel.h"
#include "app/TrayMenuPresenter.h"

#include <QHash>
#include <QPointer>

#include <QObject>

#include <functional>
#include <memory>

class QMenu;
class QuickTaskMenuItemView;
class QSystemTrayIcon;
class QTimer;
class QWidget;

// The tray icon and its menu. The menu is rebuilt from the current state each time it
// opens and refreshed every second while it stays open; no timer runs while it is
// closed and no task runs.
class StatusItemController final : public QObject {
    Q_OBJECT

public:
    // With a tray that shows menus itself (a StatusNotifierItem host) custom rows are
    // lost, so the icon's activation pops up our own menu instead.
    explicit StatusItemController(bool trayExportsMenus, QObject *parent = nullptr);
    ~StatusItemController() override;

    std::function<StatusMenuState()> stateProvider;
    // The custom row of one quick-task session, and what its buttons and its body do.
    std::function<std::optional<SessionMenuRow>(const QUuid &sessionId)> sessionRow;
    std::function<void(const QUuid &sessionId, SessionMenuRow::Action action)> onSessionAction;
    std::function<void(const QUuid &sessionId)> onSessionOpened;

    void show();
    void hide();
    QMenu *menu() const { return m_menu.get(); }
    QSystemTrayIcon *trayIcon() const { return m_trayIcon; }

    // Starts or stops the blinking that says tasks are running.
    void setTasksRunning(bool running);
    bool isBlinking() const;
    bool showsPromptLine() const { return m_showsPromptLine; }
    // A composer records a dictation: the icon gets its red dot and the tool tip says so.
    void setVoicePromptRecording(bool recording);
    bool showsVoicePromptRecording() const { return m_showsVoicePromptRecording; }
    bool isMenuOpen() const { return m_isMenuOpen; }
    bool hasRefreshTimer() const;

    void rebuildMenu();

    // Rebuilds the menu when it is open.
    void refreshIfOpen();

Q_SIGNALS:
    void actionTriggered(StatusMenuEntry::Action action);

private:
    QWidget *makeSessionRow(const QUuid &sessionId);
    // Once a second while the menu is open: session rows refresh in place.
    void refreshSessionRows();
    void refreshIcon();
    void menuWillOpen();
    void menuDidClose();

    std::unique_ptr<QMenu> m_menu;
    QSystemTrayIcon *m_trayIcon = nullptr;
    QTimer *m_blinkTimer = nullptr;
    QTimer *m_refreshTimer = nullptr;
    QHash<QUuid, QPointer<QuickTaskMenuItemView>> m_sessionRows;
    bool m_trayExportsMenus = false;
    bool m_isMenuOpen = false;
    bool m_showsPromptLine = true;
    bool m_showsVoicePromptRecording = false;
};
