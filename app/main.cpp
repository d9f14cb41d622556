#include "app/AppDelegate.h"
#include "app/CommandLine.h"
#include "core/AppConstants.h"
#include "core/TarvelError.h"
#include "core/UserDefaults.h"
#include "errorlog/ErrorLogManager.h"
#include "platform/ApplicationInstance.h"
#include "platform/WindowSystem.h"
#include "quicktasks/StandardInput.h"

#include <QApplication>
#include <QTimer>

#include <cstdio>

int main(int argc, char *argv[])
{
    if (const std::optional<int> status = CommandLine::run(argc, argv))
        return *status;

    // Children inherit standard input; a backend would wait forever on an open pipe.
    try {
        StandardInput::redirectToNullDevice();
    } catch (const TarvelError &error) {
        std::fprintf(stderr, "tarvel: %s\n", error.what());
    }

    WindowSystem::prepareEnvironment();
    QApplication app(argc, argv);
    QApplication::setApplicationName(AppConstants::appName);
    QApplication::setApplicationDisplayName(AppConstants::appName);
    QApplication::setOrganizationName(AppConstants::appName);
    QApplication::setDesktopFileName(AppConstants::appBundleIdentifier);
    // Tarvel lives in the tray; closing its last window does not end it.
    QApplication::setQuitOnLastWindowClosed(false);

    const std::unique_ptr<ApplicationInstance> instance = ApplicationInstance::create();
    if (instance->claim() == ApplicationInstance::Claim::alreadyRunning)
        return 0;

    AppDelegate delegate(PlatformServices::create(), ErrorLogManager::shared(), UserDefaults::standard());
    QObject::connect(instance.get(), &ApplicationInstance::reopenRequested, &delegate,
                     &AppDelegate::openScratchComposer);
    QTimer::singleShot(0, &delegate, &AppDelegate::applicationDidFinishLaunching);
    return QApplication::exec();
}
