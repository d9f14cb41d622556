#pragma once

#include "platform/WindowSystem.h"

#include <memory>

// The window system of an X11 desktop, read through EWMH. It borrows Qt's own xcb
// connection, so it works only inside a QGuiApplication on the xcb platform; anywhere
// else it reports an empty desktop.
class X11WindowSystem final : public WindowSystem {
public:
    X11WindowSystem();
    ~X11WindowSystem() override;

    X11WindowSystem(const X11WindowSystem &) = delete;
    X11WindowSystem &operator=(const X11WindowSystem &) = delete;

    bool isAvailable() const override;
    QList<TopLevelWindow> topLevelWindows() const override;
    std::optional<TopLevelWindow> activeWindow() const override;
    bool activateWindow(quint64 windowId) override;
    bool activateApplication(qint64 pid) override;
    bool activateOwnWindow(QWindow *window, const QString &activationToken) override;
    QString executableName(qint64 pid) const override;
    bool compositorRunning() const override;
    QList<ScreenArea> screens() const override;
    int primaryScreenIndex() const override;

    // The screen number of an X display name (":0.1" is screen 1).
    static int screenNumber(const QString &displayName);

private:
    class Connection;
    // Null without an X display.
    Connection *connection() const;

    mutable std::unique_ptr<Connection> m_connection;
};
