#include "platform/linux/ManualShortcutBinding.h"

#include "platform/linux/X11HotKeyMapping.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QStandardPaths>
#include <QStringList>

namespace ManualShortcutBinding {
namespace {

// What is suggested while no shortcut is recorded: Ctrl+Alt+K (the Mac's Command-Option-K).
constexpr int suggestedKeyCode = 0x28;
constexpr int suggestedModifiers = CarbonModifiers::command | CarbonModifiers::option;

QString quoted(const QString &text)
{
    return u'\u201c' + text + u'\u201d';
}

} // namespace

Desktop currentDesktop()
{
    if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        !(qEnvironmentVariableIsEmpty("SWAYSOCK") && qEnvironmentVariableIsEmpty("I3SOCK")))
        return Desktop::sway;
    const QStringList desktops = qEnvironmentVariable("XDG_CURRENT_DESKTOP").split(u':', Qt::SkipEmptyParts);
    if (desktops.contains(QStringLiteral("GNOME"), Qt::CaseInsensitive))
        return Desktop::gnome;
    return Desktop::other;
}

QString tarvelCommand()
{
    const QString running = QFileInfo(QCoreApplication::applicationFilePath()).canonicalFilePath();
    const QString onPath = QStandardPaths::findExecutable(QStringLiteral("tarvel"));
    if (!running.isEmpty() && QFileInfo(onPath).canonicalFilePath() == running)
        return QStringLiteral("tarvel");
    return running.isEmpty() ? QStringLiteral("tarvel") : running;
}

QString swayBinding(const Shortcut &shortcut, const QString &command)
{
    // The portal's trigger names the same modifiers and the same key symbol, in capitals.
    QStringList parts = X11HotKeyMapping::portalTrigger(shortcut).split(u'+');
    if (parts.constLast().isEmpty())
        return {};
    for (qsizetype index = 0; index + 1 < parts.size(); ++index) {
        const QString modifier = parts[index];
        parts[index] =
            modifier == u"LOGO" ? QStringLiteral("Mod4") : modifier.left(1) + modifier.mid(1).toLower();
    }
    return QStringLiteral("bindsym %1 exec %2").arg(parts.join(u'+'), command);
}

QString instructions(Desktop desktop, const std::optional<Shortcut> &shortcut, const QString &command)
{
    const Shortcut shown = shortcut.value_or(Shortcut{suggestedKeyCode, suggestedModifiers});
    switch (desktop) {
    case Desktop::sway: {
        const QString line = swayBinding(shown, command);
        if (line.isEmpty())
            return QStringLiteral("sway cannot bind %1; record another combination.")
                .arg(shown.displayText(ShortcutDisplayStyle::standard));
        return QStringLiteral("sway binds system-wide keys itself: add the line %1 to its configuration "
                              "(~/.config/sway/config) and reload it; starting Tarvel again opens a "
                              "quick-task composer.")
            .arg(quoted(line));
    }
    case Desktop::gnome:
        return QStringLiteral(
                   "GNOME offers no system-wide shortcuts to applications here: in Settings \u2192 "
                   "Keyboard \u2192 Custom Shortcuts, add one with the command %1 and the "
                   "shortcut %2; starting Tarvel again opens a quick-task composer.")
            .arg(quoted(command), shown.displayText(ShortcutDisplayStyle::standard));
    case Desktop::other:
        break;
    }
    return {};
}

} // namespace ManualShortcutBinding
