#include "app/PlatformServices.h"

#include "core/UserDefaults.h"
#include "platform/Clipboard.h"
#include "platform/ColorSchemeSource.h"
#include "platform/DistributedNotificationObserver.h"
#include "platform/FileOpener.h"
#include "platform/GlobalHotKeyService.h"
#include "platform/SpeechRecognizer.h"
#include "platform/TrayHost.h"
#include "platform/UserNotificationCenter.h"
#include "platform/WindowSystem.h"
#include "settings/AppSettings.h"

PlatformServices::PlatformServices() = default;
PlatformServices::PlatformServices(PlatformServices &&) noexcept = default;
PlatformServices &PlatformServices::operator=(PlatformServices &&) noexcept = default;
PlatformServices::~PlatformServices() = default;

PlatformServices PlatformServices::create()
{
    PlatformServices services;
    services.windowSystem = WindowSystem::create();
    services.trayExportsMenus = TrayHost::exportsMenus();
    TrayHost::quietenFallbackWarnings();
    services.notifications = UserNotificationCenter::create();
    services.clipboard = Clipboard::create();
    services.fileOpener = FileOpener::create();
    services.notificationObserver = DistributedNotificationObserver::create();
    SpeechRecognizer::Configuration speech;
    speech.recognizerCommand = [] {
        return AppSettings(UserDefaults::standard()).speechRecognizerCommand();
    };
    services.speechRecognizer = SpeechRecognizer::create(std::move(speech));
    services.hotKeys = GlobalHotKeyService::create();
    services.colorScheme = ColorSchemeSource::create();
    return services;
}
