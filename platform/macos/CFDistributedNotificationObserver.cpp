#include "platform/DistributedNotificationObserver.h"

#include <CoreFoundation/CoreFoundation.h>

namespace {

class CFDistributedNotificationObserver final : public DistributedNotificationObserver {
public:
    using DistributedNotificationObserver::DistributedNotificationObserver;

    ~CFDistributedNotificationObserver() override
    {
        CFNotificationCenterRemoveEveryObserver(CFNotificationCenterGetDistributedCenter(), this);
    }

    bool observe(const QString &name) override
    {
        CFStringRef cfName = name.toCFString();
        // Qt's event loop runs the main CFRunLoop, so delivery happens on the main thread.
        CFNotificationCenterAddObserver(CFNotificationCenterGetDistributedCenter(), this, &deliver, cfName,
                                        nullptr, CFNotificationSuspensionBehaviorDeliverImmediately);
        CFRelease(cfName);
        return true;
    }

private:
    static void deliver(CFNotificationCenterRef, void *observer, CFNotificationName name, const void *,
                        CFDictionaryRef userInfo)
    {
        DistributedNotificationUserInfo info;
        if (userInfo) {
            CFDictionaryApplyFunction(
                userInfo,
                [](const void *key, const void *value, void *context) {
                    if (CFGetTypeID(key) != CFStringGetTypeID() || CFGetTypeID(value) != CFStringGetTypeID())
                        return;
                    static_cast<DistributedNotificationUserInfo *>(context)->insert(
                        QString::fromCFString(static_cast<CFStringRef>(key)),
                        QString::fromCFString(static_cast<CFStringRef>(value)));
                },
                &info);
        }
        auto *self = static_cast<CFDistributedNotificationObserver *>(observer);
        Q_EMIT self->notificationPosted(QString::fromCFString(name), info);
    }
};

} // namespace

std::unique_ptr<DistributedNotificationObserver> DistributedNotificationObserver::create(QObject *parent)
{
    return std::make_unique<CFDistributedNotificationObserver>(parent);
}
