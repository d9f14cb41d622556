#include "platform/ApplicationInstance.h"

#include "core/AppConstants.h"
#include "platform/DistributedNotificationObserver.h"
#include "platform/DistributedNotificationPoster.h"

#import <AppKit/AppKit.h>

// The copy of the bundle that runs first is the application; a later copy finds it among the
// running applications and asks it over the distributed notification centre to show itself.
namespace {

QString reopenNotificationName()
{
    return AppConstants::appBundleIdentifier + QStringLiteral(".reopen");
}

class MacApplicationInstance final : public ApplicationInstance {
public:
    using ApplicationInstance::ApplicationInstance;

    Claim claim() override
    {
        NSRunningApplication *current = NSRunningApplication.currentApplication;
        // A bare executable (a development build) has no bundle to be found by.
        if (![current.bundleIdentifier isEqualToString:AppConstants::appBundleIdentifier.toNSString()])
            return Claim::unavailable;
        for (NSRunningApplication *other in
             [NSRunningApplication runningApplicationsWithBundleIdentifier:current.bundleIdentifier]) {
            if (other.processIdentifier != current.processIdentifier && !other.terminated) {
                DistributedNotificationPoster::create()->post(reopenNotificationName());
                return Claim::alreadyRunning;
            }
        }
        m_observer = DistributedNotificationObserver::create(this);
        connect(m_observer.get(), &DistributedNotificationObserver::notificationPosted, this,
                &MacApplicationInstance::reopenRequested);
        m_observer->observe(reopenNotificationName());
        return Claim::primary;
    }

private:
    std::unique_ptr<DistributedNotificationObserver> m_observer;
};

} // namespace

std::unique_ptr<ApplicationInstance> ApplicationInstance::create(QObject *parent)
{
    return std::make_unique<MacApplicationInstance>(parent);
}
