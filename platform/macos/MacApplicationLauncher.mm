#include "platform/ApplicationLauncher.h"

#include "core/AppConstants.h"

#include <QFileInfo>
#include <QProcess>

#import <AppKit/AppKit.h>

namespace ApplicationLauncher {

Outcome launch()
{
    NSWorkspace *workspace = NSWorkspace.sharedWorkspace;
    NSURL *application = nil;
    const QString configured = qEnvironmentVariable("TARVEL_APP_PATH");
    if (!configured.isEmpty()) {
        if (!QFileInfo::exists(configured))
            return {false, QStringLiteral("TARVEL_APP_PATH does not exist")};
        // A bare executable (a development build) is started like any program.
        if (!configured.endsWith(QLatin1String(".app"))) {
            QProcess process;
            process.setProgram(configured);
            process.setStandardInputFile(QProcess::nullDevice());
            process.setStandardOutputFile(QProcess::nullDevice());
            process.setStandardErrorFile(QProcess::nullDevice());
            return process.startDetached()
                       ? Outcome{true, {}}
                       : Outcome{false, QStringLiteral("could not start %1").arg(configured)};
        }
        application = [NSURL fileURLWithPath:configured.toNSString()];
    } else {
        application =
            [workspace URLForApplicationWithBundleIdentifier:AppConstants::appBundleIdentifier.toNSString()];
        if (!application)
            return {false, QStringLiteral("Tarvel is not installed")};
    }

    // In the background: the composer activates itself when it opens.
    NSWorkspaceOpenConfiguration *configuration = [NSWorkspaceOpenConfiguration configuration];
    configuration.activates = NO;
    [workspace openApplicationAtURL:application
                      configuration:configuration
                  completionHandler:^(NSRunningApplication *, NSError *){
                  }];
    return {true, {}};
}

} // namespace ApplicationLauncher
