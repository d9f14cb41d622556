#pragma once

#include "shortcuts/Shortcut.h"

#include <QList>
#include <QString>

#include <optional>

// One line of `tarvel doctor`.
struct DiagnosticFinding {
    enum class Severity {
        ok,
        // A feature is missing; prompt editing still works.
        warning,
        // Tarvel cannot edit prompts until it is fixed.
        problem,
    };

    QString subject;
    Severity severity = Severity::ok;
    // What was found, as a sentence.
    QString detail;
    // What to do about it; empty when nothing needs doing.
    QString remedy;
};

// What the desktop offers Tarvel: the display, the session bus and the application on it,
// a tray, a notification server. Asks the running system each time; never starts Tarvel.
namespace SystemDiagnostics {

QList<DiagnosticFinding> desktopFindings();
// Why a system-wide shortcut cannot work in this session, as a sentence; empty when it can (an X
// display to grab keys on, or the desktop portal's global shortcuts).
QString globalShortcutsUnavailableReason();
// Where the desktop binds system-wide keys itself (sway, GNOME without the portal): how the user
// binds the shortcut to Tarvel there, with the exact line; empty elsewhere.
QString manualShortcutInstructions(const std::optional<Shortcut> &shortcut);

} // namespace SystemDiagnostics
