#pragma once

#include "platform/PermissionPlatform.h"
#include "platform/linux/LinuxSettingsPages.h"

// What the Linux desktop allows: a notification server on the session bus and Tarvel's own
// switch, the speech model and an audio input as the recogniser sees them, and the desktop's
// own settings panels.
class LinuxPermissionPlatform final : public PermissionPlatform {
public:
    // Starts a settings program detached; false when it could not be started.
    using Launcher = std::function<bool(const SettingsCommand &command)>;

    LinuxPermissionPlatform(SpeechRecognizer &speechRecognizer, NotificationSwitch notificationSwitch,
                            LinuxSettingsPages::ExecutableLookup findExecutable, Launcher launch);

    QFuture<PlatformPermissionState> notificationAuthorizationStatus() override;
    PlatformPermissionState speechRecognitionState() const override;
    PlatformPermissionState microphoneState() const override;

    QFuture<void> requestNotificationsAuthorization() override;
    QFuture<void> requestSpeechRecognition() override;
    QFuture<void> requestMicrophone() override;

    QFuture<QString> openSettings(PermissionSettingsPage page) override;

private:
    SpeechRecognizer &m_speechRecognizer;
    NotificationSwitch m_notificationSwitch;
    LinuxSettingsPages::ExecutableLookup m_findExecutable;
    Launcher m_launch;
};
