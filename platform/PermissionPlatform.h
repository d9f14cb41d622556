#pragma once

#include "platform/SpeechRecognizer.h"

#include <QFuture>
#include <QPromise>
#include <QString>

#include <functional>
#include <memory>

// What the system says about one access Tarvel relies on.
struct PlatformPermissionState {
    // Where the system asks the user (the Mac), the answer so far; elsewhere what the desktop
    // allows. Notifications are never restricted; an answer the system adds later reads as denied.
    enum class Access { notDetermined, denied, restricted, authorized };

    Access access = Access::notDetermined;
    // Why the access cannot be used as things stand, as a sentence for the user; empty when the
    // state says it all.
    QString note;

    // The recogniser answers speech and microphone access in the same four ways.
    static Access fromSpeechAccess(SpeechRecognizer::Access access)
    {
        switch (access) {
        case SpeechRecognizer::Access::notDetermined:
            return Access::notDetermined;
        case SpeechRecognizer::Access::denied:
            return Access::denied;
        case SpeechRecognizer::Access::restricted:
            return Access::restricted;
        case SpeechRecognizer::Access::authorized:
            return Access::authorized;
        }
        return Access::denied;
    }
};

// The pages of the system's settings that the permissions window opens.
enum class PermissionSettingsPage {
    notifications,
    speechRecognition,
    microphone,
    screenRecording,
    filesAndFolders
};

// The system's permission services: the state of each access, asking for it, and the settings
// pages that change it. Every call asks the system again. Main thread only.
class PermissionPlatform {
public:
    // Tarvel's own switch for completion notifications, where the system has no answer of its own.
    struct NotificationSwitch {
        std::function<bool()> isOn;
        std::function<void()> turnOn;
    };

    virtual ~PermissionPlatform() = default;

    // This system's implementation. The recogniser answers for speech and the microphone; it
    // must outlive the platform object.
    static std::unique_ptr<PermissionPlatform> create(SpeechRecognizer &speechRecognizer,
                                                      NotificationSwitch notificationSwitch);

    virtual QFuture<PlatformPermissionState> notificationAuthorizationStatus() = 0;
    virtual PlatformPermissionState speechRecognitionState() const = 0;
    virtual PlatformPermissionState microphoneState() const = 0;

    // Ask for access where the system asks the user; the futures finish with the answer given.
    virtual QFuture<void> requestNotificationsAuthorization() = 0;
    virtual QFuture<void> requestSpeechRecognition() = 0;
    virtual QFuture<void> requestMicrophone() = 0;

    // Opens the page. Finishes with an empty text when a page was opened, otherwise with one
    // sentence telling the user where to look instead.
    virtual QFuture<QString> openSettings(PermissionSettingsPage page) = 0;

protected:
    // A request answered through a callback, as a future that finishes with the answer.
    static QFuture<void> finishedWhenAnswered(const std::function<void(std::function<void(bool)>)> &ask)
    {
        auto promise = std::make_shared<QPromise<void>>();
        QFuture<void> future = promise->future();
        promise->start();
        ask([promise](bool) { promise->finish(); });
        return future;
    }
};
