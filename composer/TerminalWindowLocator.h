#pragma once

#include "core/ComposerRequest.h"
#include "platform/WindowSystem.h"

#include <QRect>
#include <QString>

#include <optional>

// Finds the terminal window a composer panel belongs over: the window of the process that
// asked for the editor or, failing that, the active window when it is a terminal's.
class TerminalWindowLocator final {
public:
    explicit TerminalWindowLocator(const WindowSystem &windows);

    // The frame of the requesting terminal's window; nothing for a scratch panel
    // (no request) unless a terminal is the active window.
    std::optional<QRect> bestFrame(const std::optional<ComposerRequest> &request) const;

    // The frame of the process's front-most window.
    std::optional<QRect> frontWindowFrame(qint64 pid) const;

    // Whether a window class (either half of WM_CLASS) is one of the known terminal emulators.
    static bool isTerminalWindowClass(const QString &windowClass);
    static bool isTerminalWindow(const TopLevelWindow &window);

private:
    const WindowSystem &m_windows;
};
