#include "composer/TerminalWindowLocator.h"

#include <QStringList>

TerminalWindowLocator::TerminalWindowLocator(const WindowSystem &windows)
    : m_windows(windows)
{
}

std::optional<QRect> TerminalWindowLocator::bestFrame(const std::optional<ComposerRequest> &request) const
{
    if (request && request->sourceApplicationPID) {
        if (std::optional<QRect> frame = frontWindowFrame(*request->sourceApplicationPID))
            return frame;
    }
    // The requesting process may have no window of its own (a terminal multiplexer's server,
    // a remote shell); the terminal the user is typing in is then the best guess.
    const std::optional<TopLevelWindow> active = m_windows.activeWindow();
    if (!active || !isTerminalWindow(*active))
        return std::nullopt;
    // Only as a normal, visible window: the active window may be a dialog or one of our own.
    for (const TopLevelWindow &window : m_windows.topLevelWindows()) {
        if (window.id == active->id)
            return window.frame;
    }
    return std::nullopt;
}

std::optional<QRect> TerminalWindowLocator::frontWindowFrame(qint64 pid) const
{
    if (pid <= 0)
        return std::nullopt;
    for (const TopLevelWindow &window : m_windows.topLevelWindows()) {
        if (window.pid == pid && !window.frame.isEmpty())
            return window.frame;
    }
    return std::nullopt;
}

bool TerminalWindowLocator::isTerminalWindowClass(const QString &windowClass)
{
    static const QStringList terminals = {
        QStringLiteral("xterm"),
        QStringLiteral("gnome-terminal"),
        QStringLiteral("gnome-terminal-server"),
        QStringLiteral("konsole"),
        QStringLiteral("kitty"),
        QStringLiteral("alacritty"),
        QStringLiteral("foot"),
        QStringLiteral("footclient"),
        QStringLiteral("wezterm"),
        QStringLiteral("org.wezfurlong.wezterm"),
        QStringLiteral("xfce4-terminal"),
        QStringLiteral("tilix"),
        QStringLiteral("terminator"),
        QStringLiteral("urxvt"),
        QStringLiteral("rxvt-unicode"),
        // The Mac's window list gives the owner's bundle identifier.
        QStringLiteral("com.apple.Terminal"),
    };
    return !windowClass.isEmpty() && terminals.contains(windowClass, Qt::CaseInsensitive);
}

bool TerminalWindowLocator::isTerminalWindow(const TopLevelWindow &window)
{
    return isTerminalWindowClass(window.windowInstance) || isTerminalWindowClass(window.windowClass);
}
