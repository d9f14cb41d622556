#include "platform/RunningApplicationWatcher.h"

#include "core/AppConstants.h"

#import <AppKit/AppKit.h>

namespace {

NSString *bundleIdentifier()
{
    return AppConstants::appBundleIdentifier.toNSString();
}

bool isTarvel(NSNotification *notification)
{
    NSRunningApplication *application = notification.userInfo[NSWorkspaceApplicationKey];
    return [application.bundleIdentifier isEqualToString:bundleIdentifier()];
}

class MacRunningApplicationWatcher final : public RunningApplicationWatcher {
public:
    explicit MacRunningApplicationWatcher(QObject *parent)
        : RunningApplicationWatcher(parent)
    {
        NSNotificationCenter *center = NSWorkspace.sharedWorkspace.notificationCenter;
        m_launchObserver = [center addObserverForName:NSWorkspaceDidLaunchApplicationNotification
                                               object:nil
                                                queue:NSOperationQueue.mainQueue
                                           usingBlock:^(NSNotification *notification) {
                                             if (isTarvel(notification))
                                                 Q_EMIT applicationDidLaunch();
                                           }];
        m_terminateObserver = [center addObserverForName:NSWorkspaceDidTerminateApplicationNotification
                                                  object:nil
                                                   queue:NSOperationQueue.mainQueue
                                              usingBlock:^(NSNotification *notification) {
                                                if (isTarvel(notification))
                                                    Q_EMIT applicationDidTerminate();
                                              }];
    }

    ~MacRunningApplicationWatcher() override
    {
        NSNotificationCenter *center = NSWorkspace.sharedWorkspace.notificationCenter;
        [center removeObserver:m_launchObserver];
        [center removeObserver:m_terminateObserver];
    }

    bool canObserve() const override { return true; }

    bool isRunning() const override
    {
        return [NSRunningApplication runningApplicationsWithBundleIdentifier:bundleIdentifier()].count > 0;
    }

private:
    id m_launchObserver = nil;
    id m_terminateObserver = nil;
};

} // namespace

std::unique_ptr<RunningApplicationWatcher> RunningApplicationWatcher::create(QObject *parent)
{
    return std::make_unique<MacRunningApplicationWatcher>(parent);
}
