#pragma once

#include "platform/PermissionPlatform.h"

#include <QEventLoop>
#include <QFutureWatcher>
#include <QStringList>

// Answers what the test sets and records what was asked of it. An access asked for becomes
// authorised, as when the user agrees.
class FakePermissionPlatform final : public PermissionPlatform {
public:
    PlatformPermissionState notifications, speechRecognition, microphone;
    // What openSettings answers: empty as when a page opened.
    QString whereToLook;
    QStringList calls;

    QFuture<PlatformPermissionState> notificationAuthorizationStatus() override
    {
        return QtFuture::makeReadyFuture(notifications);
    }
    PlatformPermissionState speechRecognitionState() const override { return speechRecognition; }
    PlatformPermissionState microphoneState() const override { return microphone; }
    QFuture<void> requestNotificationsAuthorization() override
    {
        return grant(notifications, "notifications");
    }
    QFuture<void> requestSpeechRecognition() override
    {
        return grant(speechRecognition, "speechRecognition");
    }
    QFuture<void> requestMicrophone() override { return grant(microphone, "microphone"); }
    QFuture<QString> openSettings(PermissionSettingsPage page) override
    {
        calls.append(QStringLiteral("open %1").arg(int(page)));
        return QtFuture::makeReadyFuture(whereToLook);
    }

private:
    QFuture<void> grant(PlatformPermissionState &state, const char *name)
    {
        calls.append(QStringLiteral("request ") + QLatin1String(name));
        state = {PlatformPermissionState::Access::authorized, {}};
        return QtFuture::makeReadyFuture();
    }
};

// Runs the event loop until the future (and the continuations queued on it) finished.
template<typename T> QFuture<T> awaited(QFuture<T> future)
{
    QFutureWatcher<T> watcher;
    QEventLoop loop;
    QObject::connect(&watcher, &QFutureWatcher<T>::finished, &loop, &QEventLoop::quit);
    watcher.setFuture(future);
    if (!future.isFinished())
        loop.exec();
    return future;
}
