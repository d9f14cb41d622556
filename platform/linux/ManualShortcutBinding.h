#pragma once

#include "shortcuts/Shortcut.h"

#include <QString>

#include <optional>

// Where the desktop binds system-wide keys itself and lets no application do it (sway; GNOME
// without the GlobalShortcuts portal), the user binds the shortcut to `tarvel` in the desktop's own
// settings: a second start of Tarvel opens a quick-task composer in the running copy. This says how,
// with the exact line to add.
namespace ManualShortcutBinding {

enum class Desktop {
    // sway, or another Wayland compositor that speaks the i3 IPC and reads its binding lines.
    sway,
    gnome,
    other,
};

// The desktop of this session: a Wayland session with sway's (or i3's) IPC socket, else what
// XDG_CURRENT_DESKTOP names.
Desktop currentDesktop();

// The command that starts this copy of Tarvel: "tarvel" when that is what PATH finds, else the
// full path of the running program.
QString tarvelCommand();

// The line for sway's configuration, "bindsym Ctrl+Alt+k exec tarvel"; empty for a key sway has no
// name for.
QString swayBinding(const Shortcut &shortcut, const QString &command);

// One sentence for the user: where to bind what. The shortcut is the stored one; without one a
// suggested combination stands in. Empty for a desktop Tarvel knows no way for.
QString instructions(Desktop desktop, const std::optional<Shortcut> &shortcut, const QString &command);

} // namespace ManualShortcutBinding
