#include "platform/PermissionPlatform.h"

#include "platform/SpeechRecognizer.h"

#include <QFileInfo>
#include <QPromise>
#include <QStringList>

#import <AppKit/AppKit.h>
#import <UserNotifications/UserNotifications.h>

#include <memory>

namespace {

using Access = PlatformPermissionState::Access;

// Provisional and ephemeral delivery count as allowed; a status added later needs attention.
Access accessOf(UNAuthorizationStatus status)
{
    switch (status) {
    case UNAuthorizationStatusNotDetermined:
        return Access::notDetermined;
    case UNAuthorizationStatusAuthorized:
    case UNAuthorizationStatusProvisional:
    case UNAuthorizationStatusEphemeral:
        return Access::authorized;
    default:
        return Access::denied;
    }
}

// The current System Settings form of each page first, then the older one.
QStringList settingsAddresses(PermissionSettingsPage page)
{
    const auto privacy = [](const QString &anchor) {
        return QStringList{
            QStringLiteral("x-apple.systempreferences:com.apple.settings.PrivacySecurity.extension?") +
                anchor,
            QStringLiteral("x-apple.systempreferences:com.apple.preference.security?") + anchor};
    };
    switch (page) {
    case PermissionSettingsPage::notifications:
        return {QStringLiteral("x-apple.systempreferences:com.apple.Notifications-Settings.extension")};
    case PermissionSettingsPage::speechRecognition:
        return privacy(QStringLiteral("Privacy_SpeechRecognition"));
    case PermissionSettingsPage::microphone:
        return privacy(QStringLiteral("Privacy_Microphone"));
    case PermissionSettingsPage::screenRecording:
        return privacy(QStringLiteral("Privacy_ScreenCapture"));
    case PermissionSettingsPage::filesAndFolders:
        return privacy(QStringLiteral("Privacy_FilesAndFolders"));
    }
    return {};
}

// System Settings itself, where a page's address does not open; nil where it is missing.
NSURL *systemSettingsApplicationURL()
{
    const QString path = QStringLiteral("/System/Applications/System Settings.app");
    return QFileInfo::exists(path) ? [NSURL fileURLWithPath:path.toNSString()] : nil;
}

bool openURL(NSURL *url)
{
    return url && [[NSWorkspace sharedWorkspace] openURL:url];
}

// The system asks the user for each access and keeps the answers; System Settings changes them.
class MacPermissionPlatform final : public PermissionPlatform {
public:
    explicit MacPermissionPlatform(SpeechRecognizer &speechRecognizer)
        : m_speechRecognizer(speechRecognizer)
    {
    }

    QFuture<PlatformPermissionState> notificationAuthorizationStatus() override
    {
        auto promise = std::make_shared<QPromise<PlatformPermissionState>>();
        QFuture<PlatformPermissionState> future = promise->future();
        promise->start();
        [[UNUserNotificationCenter currentNotificationCenter]
            getNotificationSettingsWithCompletionHandler:^(UNNotificationSettings *settings) {
              promise->addResult(PlatformPermissionState{accessOf(settings.authorizationStatus), {}});
              promise->finish();
            }];
        return future;
    }

    PlatformPermissionState speechRecognitionState() const override
    {
        return {PlatformPermissionState::fromSpeechAccess(m_speechRecognizer.speechRecognitionAccess()), {}};
    }

    PlatformPermissionState microphoneState() const override
    {
        return {PlatformPermissionState::fromSpeechAccess(m_speechRecognizer.microphoneAccess()), {}};
    }

    QFuture<void> requestNotificationsAuthorization() override
    {
        auto promise = std::make_shared<QPromise<void>>();
        QFuture<void> future = promise->future();
        promise->start();
        [[UNUserNotificationCenter currentNotificationCenter]
            requestAuthorizationWithOptions:(UNAuthorizationOptionAlert | UNAuthorizationOptionSound)
                          completionHandler:^(BOOL, NSError *) {
                            promise->finish();
                          }];
        return future;
    }

    QFuture<void> requestSpeechRecognition() override
    {
        return finishedWhenAnswered([this](std::function<void(bool)> answer) {
            m_speechRecognizer.requestSpeechRecognitionAccess(std::move(answer));
        });
    }

    QFuture<void> requestMicrophone() override
    {
        return finishedWhenAnswered([this](std::function<void(bool)> answer) {
            m_speechRecognizer.requestMicrophoneAccess(std::move(answer));
        });
    }

    // An address the system cannot open falls through to the next, then to System Settings itself.
    QFuture<QString> openSettings(PermissionSettingsPage page) override
    {
        for (const QString &address : settingsAddresses(page)) {
            if (openURL([NSURL URLWithString:address.toNSString()]))
                return QtFuture::makeReadyFuture(QString());
        }
        openURL(systemSettingsApplicationURL());
        return QtFuture::makeReadyFuture(QString());
    }

private:
    SpeechRecognizer &m_speechRecognizer;
};

} // namespace

// The system keeps the notification answer, so Tarvel's own switch plays no part here.
std::unique_ptr<PermissionPlatform> PermissionPlatform::create(SpeechRecognizer &speechRecognizer,
                                                               NotificationSwitch)
{
    return std::make_unique<MacPermissionPlatform>(speechRecognizer);
}
