#include "platform/linux/LinuxPermissionPlatform.h"

#include "platform/SpeechRecognizer.h"
#include "platform/linux/NotificationServer.h"

#include <QDBusConnection>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QProcess>
#include <QPromise>
#include <QStandardPaths>

#include <memory>

namespace {
using Access = PlatformPermissionState::Access;
} // namespace

std::unique_ptr<PermissionPlatform> PermissionPlatform::create(SpeechRecognizer &speechRecognizer,
                                                               NotificationSwitch notificationSwitch)
{
    return std::make_unique<LinuxPermissionPlatform>(
        speechRecognizer, std::move(notificationSwitch),
        [](const QString &program) { return QStandardPaths::findExecutable(program); },
        [](const SettingsCommand &command) {
            return QProcess::startDetached(command.program, command.arguments);
        });
}

LinuxPermissionPlatform::LinuxPermissionPlatform(SpeechRecognizer &speechRecognizer,
                                                 NotificationSwitch notificationSwitch,
                                                 LinuxSettingsPages::ExecutableLookup findExecutable,
                                                 Launcher launch)
    : m_speechRecognizer(speechRecognizer)
    , m_notificationSwitch(std::move(notificationSwitch))
    , m_findExecutable(std::move(findExecutable))
    , m_launch(std::move(launch))
{
}

QFuture<PlatformPermissionState> LinuxPermissionPlatform::notificationAuthorizationStatus()
{
    auto promise = std::make_shared<QPromise<PlatformPermissionState>>();
    QFuture<PlatformPermissionState> future = promise->future();
    promise->start();
    const bool switchOn = m_notificationSwitch.isOn();
    const auto answer = [switchOn, promise](bool serverRunning) {
        PlatformPermissionState state{Access::authorized, {}};
        if (!serverRunning)
            state = {Access::denied, QStringLiteral("No notification server is running on this desktop. ") +
                                         NotificationServer::installRemedy()};
        else if (!switchOn)
            state = {Access::denied,
                     QStringLiteral("Completion notifications are turned off in Tarvel's Preferences.")};
        promise->addResult(state);
        promise->finish();
    };
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        answer(false);
        return future;
    }
    // Asked without waiting: a busy bus must not hold up the window.
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(NotificationServer::isRunningQuestion()));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [answer](QDBusPendingCallWatcher *call) {
                         const QDBusPendingReply<bool> owned = *call;
                         answer(owned.isValid() && owned.value());
                         call->deleteLater();
                     });
    return future;
}

PlatformPermissionState LinuxPermissionPlatform::speechRecognitionState() const
{
    PlatformPermissionState state{
        PlatformPermissionState::fromSpeechAccess(m_speechRecognizer.speechRecognitionAccess()), {}};
    // Nothing is granted here; what can stop recognition is a missing model or command.
    if (state.access == Access::authorized) {
        const QString reason = m_speechRecognizer.unavailableReason();
        if (!reason.isEmpty())
            state = {Access::denied, reason};
    }
    return state;
}

PlatformPermissionState LinuxPermissionPlatform::microphoneState() const
{
    PlatformPermissionState state{
        PlatformPermissionState::fromSpeechAccess(m_speechRecognizer.microphoneAccess()), {}};
    if (state.access == Access::denied)
        state.note = QStringLiteral("No microphone is connected or enabled.");
    return state;
}

QFuture<void> LinuxPermissionPlatform::requestNotificationsAuthorization()
{
    m_notificationSwitch.turnOn();
    return QtFuture::makeReadyFuture();
}

QFuture<void> LinuxPermissionPlatform::requestSpeechRecognition()
{
    return finishedWhenAnswered([this](std::function<void(bool)> answer) {
        m_speechRecognizer.requestSpeechRecognitionAccess(answer);
    });
}

QFuture<void> LinuxPermissionPlatform::requestMicrophone()
{
    return finishedWhenAnswered(
        [this](std::function<void(bool)> answer) { m_speechRecognizer.requestMicrophoneAccess(answer); });
}

QFuture<QString> LinuxPermissionPlatform::openSettings(PermissionSettingsPage page)
{
    for (const SettingsCommand &command : LinuxSettingsPages::candidates(page, m_findExecutable)) {
        if (m_launch(command))
            return QtFuture::makeReadyFuture(QString());
    }
    if (page == PermissionSettingsPage::speechRecognition) {
        const QString reason = m_speechRecognizer.unavailableReason();
        if (!reason.isEmpty())
            return QtFuture::makeReadyFuture(reason);
    }
    return QtFuture::makeReadyFuture(LinuxSettingsPages::whereToLook(page));
}
