#pragma once

#include <QList>
#include <QRect>
#include <QString>
#include <QtGlobal>

#include <memory>
#include <optional>

class QWindow;

// One top-level client window as the window manager sees it.
struct TopLevelWindow {
    quint64 id = 0;
    // 0 when the window does not say which process owns it.
    qint64 pid = 0;
    // The two halves of the window class: instance ("xterm") and class ("XTerm").
    QString windowInstance;
    QString windowClass;
    // The outer frame including the window manager's decorations, in the desktop's
    // device-independent pixels, y downward from the top left of the virtual desktop.
    QRect frame;

    friend bool operator==(const TopLevelWindow &, const TopLevelWindow &) = default;
};

// A screen, in the order QGuiApplication::screens() lists them.
struct ScreenArea {
    QRect geometry;
    // The part of the screen that panels, docks and trays leave free for windows.
    QRect workArea;

    friend bool operator==(const ScreenArea &, const ScreenArea &) = default;
};

// The desktop's windows: what is on screen, what is in front, and how to bring
// something forward. Without a window system (offscreen, Wayland without X) every
// query answers empty or false instead of failing.
class WindowSystem {
public:
    virtual ~WindowSystem() = default;

    // The implementation for this platform and session (X11, Wayland with or without the i3 IPC).
    // Create it after the QGuiApplication.
    static std::unique_ptr<WindowSystem> create();
    // Sets what Qt reads only while the QGuiApplication is made; call before making it.
    static void prepareEnvironment();

    virtual bool isAvailable() const = 0;

    // Normal, visible top-level windows of other processes, front-most first.
    virtual QList<TopLevelWindow> topLevelWindows() const = 0;
    // The window that has the keyboard focus, whoever owns it.
    virtual std::optional<TopLevelWindow> activeWindow() const = 0;

    // Brings the window forward and gives it the focus, also when asked from an
    // application in the background. True when the request went out.
    virtual bool activateWindow(quint64 windowId) = 0;
    // Activates the front-most normal window of the process; false if it has none.
    virtual bool activateApplication(qint64 pid) = 0;

    // The executable's file name ("xterm"), empty if the process is unknown.
    virtual QString executableName(qint64 pid) const = 0;

    // Whether translucent windows can be drawn (a compositing manager runs).
    virtual bool compositorRunning() const = 0;

    virtual QList<ScreenArea> screens() const = 0;
    // Index into screens() of the primary screen, -1 without screens.
    virtual int primaryScreenIndex() const = 0;

    // Asks the window system, beyond Qt's own request, to give one of our windows the keyboard: on
    // X11 as a pager would, on Wayland with an activation token from the process that asked for
    // the window (its XDG_ACTIVATION_TOKEN), over sway's IPC by focusing its container. Nothing
    // where Qt's request is all there is (the Mac).
    virtual bool activateOwnWindow(QWindow *window, const QString &activationToken = {})
    {
        Q_UNUSED(window);
        Q_UNUSED(activationToken);
        return false;
    }
    // Keeps one of our windows where Qt has it, from now on. Nothing where Qt moves windows itself
    // (X11, the Mac) and where the compositor takes no requests; over sway's IPC it asks.
    virtual void followOwnWindow(QWindow *window) { Q_UNUSED(window); }
    // Whether a window whose height cannot change floats instead of being tiled: tiling Wayland
    // compositors read equal minimum and maximum sizes so. Panels whose height follows their text
    // then keep it fixed.
    virtual bool floatsFixedSizeWindows() const { return false; }

    // Where the system has a Dock: whether the application shows its icon there and can be the
    // active application (while one of its windows is up), or stays an accessory. Nothing elsewhere.
    virtual void setShowsInDock(bool shown) { Q_UNUSED(shown); }

protected:
    // activateApplication where windows are activated one at a time: the process's front-most.
    bool activateFrontWindowOf(qint64 pid)
    {
        if (pid <= 0)
            return false;
        for (const TopLevelWindow &window : topLevelWindows()) {
            if (window.pid == pid)
                return activateWindow(window.id);
        }
        return false;
    }
};
