# The macOS sources of each platform target and what each links, as plain lists: CMakeLists.txt
# here builds from them, and tests/cmake/CheckMacSources.cmake checks them on every system.
# Paths are relative to this folder.

# Targets that platform/CMakeLists.txt defines for both systems; the Mac adds to them.
set(TARVEL_MAC_SHARED_TARGETS TarvelPlatformCore TarvelPlatformHelper TarvelPlatformSpeechEngine TarvelPlatformSpeech)
# Targets each system defines itself.
set(TARVEL_MAC_OWN_TARGETS
    TarvelPlatformDesktop TarvelPlatformDiagnostics TarvelPlatformHotKeys TarvelPlatformPermissions)

# The distributed notification centre, NSWorkspace to reveal files, the login item, the single
# instance, the status item and the user notification centre.
set(TARVEL_MAC_TarvelPlatformCore_SOURCES
    CFDistributedNotificationObserver.cpp
    MacColorSchemeSource.cpp
    CFDistributedNotificationPoster.cpp
    ../ApplicationInstance.h MacApplicationInstance.mm
    ../FileRevealer.h MacFileRevealer.mm
    ../LoginItem.h MacLoginItem.mm
    ../TrayHost.h MacTrayHost.cpp
    ../UserNotificationCenter.h MacUserNotificationCenter.mm
)
set(TARVEL_MAC_TarvelPlatformCore_PUBLIC
    "-framework CoreFoundation" "-framework AppKit" "-framework ServiceManagement"
    "-framework UserNotifications")

# tarvel-edit's transport, without Qt: the distributed notification centre, NSRunningApplication
# for the application's presence (a kqueue on its process while it runs), open(1) to start the
# bundle, LaunchServices' __CFBundleIdentifier for the source terminal; a kqueue on the Responses
# folder.
set(TARVEL_MAC_TarvelPlatformHelper_SOURCES
    KqueueFolderWatch.cpp
    MacApplicationTransport.mm
    MacExecutablePath.cpp
)
set(TARVEL_MAC_TarvelPlatformHelper_PRIVATE "-framework CoreFoundation" "-framework AppKit")

# Speech: SFSpeechRecognizer on device fed by AVAudioEngine; recordings (tarvel transcribe) need
# the user's recogniser command here.
set(TARVEL_MAC_TarvelPlatformSpeechEngine_SOURCES BuiltInSpeechEngine.cpp)
set(TARVEL_MAC_TarvelPlatformSpeech_SOURCES MacSpeechRecognizer.mm)
set(TARVEL_MAC_TarvelPlatformSpeech_PRIVATE "-framework Speech" "-framework AVFoundation")

# The window server's window list, activation through NSRunningApplication, the Dock icon.
set(TARVEL_MAC_TarvelPlatformDesktop_SOURCES ../WindowSystem.h MacWindowSystem.mm)
set(TARVEL_MAC_TarvelPlatformDesktop_PUBLIC tarvel_settings TarvelPlatformBase Qt6::Core)
set(TARVEL_MAC_TarvelPlatformDesktop_PRIVATE Qt6::Gui "-framework AppKit" "-framework CoreGraphics")

# What the Mac offers, for `tarvel doctor`.
set(TARVEL_MAC_TarvelPlatformDiagnostics_SOURCES ../SystemDiagnostics.h MacSystemDiagnostics.mm)
set(TARVEL_MAC_TarvelPlatformDiagnostics_PUBLIC tarvel_settings TarvelPlatformCore TarvelShortcuts)
set(TARVEL_MAC_TarvelPlatformDiagnostics_PRIVATE "-framework AppKit")

# The system-wide hot key: Carbon's event hot keys on the application's event target.
set(TARVEL_MAC_TarvelPlatformHotKeys_SOURCES MacGlobalHotKeyService.mm)
set(TARVEL_MAC_TarvelPlatformHotKeys_PUBLIC TarvelPlatformHotKeyService)
set(TARVEL_MAC_TarvelPlatformHotKeys_PRIVATE "-framework Carbon")

# Permission state: the notification centre's settings, the recogniser's answers, System Settings.
set(TARVEL_MAC_TarvelPlatformPermissions_SOURCES ../PermissionPlatform.h MacPermissionPlatform.mm)
set(TARVEL_MAC_TarvelPlatformPermissions_PUBLIC
    tarvel_settings TarvelPlatformCore TarvelPlatformSpeechEngine Qt6::Core)
set(TARVEL_MAC_TarvelPlatformPermissions_PRIVATE "-framework AppKit" "-framework UserNotifications")
