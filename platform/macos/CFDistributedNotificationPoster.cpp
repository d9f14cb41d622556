#include "platform/DistributedNotificationPoster.h"

#include <CoreFoundation/CoreFoundation.h>

namespace {

class CFDistributedNotificationPoster final : public DistributedNotificationPoster {
public:
    // The distributed centre is always there in a user's session.
    bool isAvailable() const override { return true; }

    bool post(const QString &name, const DistributedNotificationUserInfo &userInfo) override
    {
        CFStringRef cfName = name.toCFString();
        CFMutableDictionaryRef info = nullptr;
        if (!userInfo.isEmpty()) {
            info =
                CFDictionaryCreateMutable(kCFAllocatorDefault, userInfo.size(),
                                          &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks);
            for (auto it = userInfo.cbegin(); it != userInfo.cend(); ++it) {
                CFStringRef key = it.key().toCFString();
                CFStringRef value = it.value().toCFString();
                CFDictionarySetValue(info, key, value);
                CFRelease(key);
                CFRelease(value);
            }
        }
        CFNotificationCenterPostNotification(CFNotificationCenterGetDistributedCenter(), cfName, nullptr,
                                             info, true);
        if (info)
            CFRelease(info);
        CFRelease(cfName);
        return true;
    }
};

} // namespace

std::unique_ptr<DistributedNotificationPoster> DistributedNotificationPoster::create()
{
    return std::make_unique<CFDistributedNotificationPoster>();
}
