#include "platform/SystemDiagnostics.h"

#include "core/AppConstants.h"

#import <AppKit/AppKit.h>

namespace SystemDiagnostics {

// The Mac always has a menu bar for the status item, a notification centre and the distributed
// notification centre; what can be missing is the application itself.
QList<DiagnosticFinding> desktopFindings()
{
    using Severity = DiagnosticFinding::Severity;
    NSString *identifier = AppConstants::appBundleIdentifier.toNSString();
    if ([NSRunningApplication runningApplicationsWithBundleIdentifier:identifier].count > 0)
        return {{QStringLiteral("Application"), Severity::ok, QStringLiteral("Tarvel is running."), {}}};
    if ([NSWorkspace.sharedWorkspace URLForApplicationWithBundleIdentifier:identifier])
        return {{QStringLiteral("Application"),
                 Severity::ok,
                 QStringLiteral("Tarvel is not running; tarvel-edit starts it on demand."),
                 {}}};
    return {{QStringLiteral("Application"), Severity::problem,
             QStringLiteral("Tarvel.app is not installed, so tarvel-edit cannot start it."),
             QStringLiteral("Move Tarvel.app into the Applications folder and open it once.")}};
}

// Carbon's hot keys need no permission and work in every session.
QString globalShortcutsUnavailableReason()
{
    return {};
}

QString manualShortcutInstructions(const std::optional<Shortcut> &)
{
    return {};
}

} // namespace SystemDiagnostics
