#pragma once

#include <memory>

class Clipboard;
class ColorSchemeSource;
class DistributedNotificationObserver;
class FileOpener;
class GlobalHotKeyService;
class SpeechRecognizer;
class UserNotificationCenter;
class WindowSystem;

// The operating-system services the application uses, made once by main() and handed
// in, so that everything above the platform can run against fakes.
struct PlatformServices {
    std::unique_ptr<WindowSystem> windowSystem;
    std::unique_ptr<UserNotificationCenter> notifications;
    std::unique_ptr<Clipboard> clipboard;
    std::unique_ptr<FileOpener> fileOpener;
    // Delivers the helper's "request created" signal; it starts listening at launch.
    std::unique_ptr<DistributedNotificationObserver> notificationObserver;
    // Dictation in the composers: one for the application, so one model is loaded however many
    // composers are open.
    std::unique_ptr<SpeechRecognizer> speechRecognizer;
    // The desktop's light or dark preference.
    std::unique_ptr<ColorSchemeSource> colorScheme;
    // The system-wide shortcut that opens a scratch composer.
    std::unique_ptr<GlobalHotKeyService> hotKeys;
    // A StatusNotifierItem host draws exported menus itself and loses custom rows.
    bool trayExportsMenus = false;

    PlatformServices();
    PlatformServices(PlatformServices &&) noexcept;
    PlatformServices &operator=(PlatformServices &&) noexcept;
    ~PlatformServices();

    // This system's implementations. Call after the QApplication exists.
    static PlatformServices create();
};
