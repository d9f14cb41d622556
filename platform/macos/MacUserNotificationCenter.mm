#include "platform/UserNotificationCenter.h"

#import <Foundation/Foundation.h>
#import <UserNotifications/UserNotifications.h>

// The system's notification centre. Responses arrive on a queue of the system's; the handler
// is called on the main queue, which Qt's event loop runs.
@interface TarvelNotificationDelegate : NSObject <UNUserNotificationCenterDelegate>
@property(nonatomic) UserNotificationCenter::ResponseHandler handler;
@end

@implementation TarvelNotificationDelegate

// Tarvel is an accessory, but a banner must show while one of its composers is in front too, and
// stay in the notification list for later.
- (void)userNotificationCenter:(UNUserNotificationCenter *)center
       willPresentNotification:(UNNotification *)notification
         withCompletionHandler:(void (^)(UNNotificationPresentationOptions))completionHandler
{
    completionHandler(UNNotificationPresentationOptionBanner | UNNotificationPresentationOptionList |
                      UNNotificationPresentationOptionSound);
}

- (void)userNotificationCenter:(UNUserNotificationCenter *)center
    didReceiveNotificationResponse:(UNNotificationResponse *)response
             withCompletionHandler:(void (^)(void))completionHandler
{
    UNNotificationRequest *request = response.notification.request;
    if (![response.actionIdentifier isEqualToString:UNNotificationDismissActionIdentifier]) {
        UserNotificationResponse reply;
        reply.notificationIdentifier = QString::fromNSString(request.identifier);
        reply.actionIdentifier =
            [response.actionIdentifier isEqualToString:UNNotificationDefaultActionIdentifier]
                ? UserNotificationCenter::defaultActionIdentifier
                : QString::fromNSString(response.actionIdentifier);
        NSDictionary *userInfo = request.content.userInfo;
        for (id key in userInfo) {
            id value = userInfo[key];
            if ([key isKindOfClass:NSString.class] && [value isKindOfClass:NSString.class])
                reply.userInfo.insert(QString::fromNSString(key), QString::fromNSString(value));
        }
        dispatch_async(dispatch_get_main_queue(), ^{
          if (self.handler)
              self.handler(reply);
        });
    }
    [center removeDeliveredNotificationsWithIdentifiers:@[ request.identifier ]];
    completionHandler();
}

@end

namespace {

class MacUserNotificationCenter final : public UserNotificationCenter {
public:
    MacUserNotificationCenter()
        : m_delegate([TarvelNotificationDelegate new])
        , m_categories([NSMutableDictionary dictionary])
    {
        // The centre keeps a weak reference to its delegate; this object holds it.
        UNUserNotificationCenter.currentNotificationCenter.delegate = m_delegate;
    }

    ~MacUserNotificationCenter() override
    {
        UNUserNotificationCenter.currentNotificationCenter.delegate = nil;
    }

    void registerCategory(const QString &categoryIdentifier,
                          const QList<UserNotificationAction> &actions) override
    {
        NSMutableArray<UNNotificationAction *> *buttons = [NSMutableArray array];
        for (const UserNotificationAction &action : actions) {
            [buttons addObject:[UNNotificationAction actionWithIdentifier:action.identifier.toNSString()
                                                                    title:action.title.toNSString()
                                                                  options:UNNotificationActionOptionNone]];
        }
        NSString *identifier = categoryIdentifier.toNSString();
        m_categories[identifier] =
            [UNNotificationCategory categoryWithIdentifier:identifier
                                                   actions:buttons
                                         intentIdentifiers:@[]
                                                   options:UNNotificationCategoryOptionNone];
        // The system takes every category at once, replacing what it had.
        [UNUserNotificationCenter.currentNotificationCenter
            setNotificationCategories:[NSSet setWithArray:m_categories.allValues]];
    }

    void setResponseHandler(ResponseHandler handler) override { m_delegate.handler = std::move(handler); }

    void post(const UserNotificationRequest &request) override
    {
        UNMutableNotificationContent *content = [UNMutableNotificationContent new];
        content.title = request.title.toNSString();
        content.subtitle = request.subtitle.toNSString();
        content.body = request.body.toNSString();
        content.categoryIdentifier = request.categoryIdentifier.toNSString();
        content.threadIdentifier = request.threadIdentifier.toNSString();
        NSMutableDictionary *userInfo = [NSMutableDictionary dictionary];
        for (auto it = request.userInfo.cbegin(); it != request.userInfo.cend(); ++it)
            userInfo[it.key().toNSString()] = it.value().toNSString();
        content.userInfo = userInfo;
        if (request.playsDefaultSound)
            content.sound = UNNotificationSound.defaultSound;
        // No trigger: shown at once. The same identifier replaces an earlier notification.
        [UNUserNotificationCenter.currentNotificationCenter
            addNotificationRequest:[UNNotificationRequest
                                       requestWithIdentifier:request.identifier.toNSString()
                                                     content:content
                                                     trigger:nil]
             withCompletionHandler:nil];
    }

    void remove(const QString &identifier) override
    {
        NSArray<NSString *> *identifiers = @[ identifier.toNSString() ];
        UNUserNotificationCenter *center = UNUserNotificationCenter.currentNotificationCenter;
        [center removePendingNotificationRequestsWithIdentifiers:identifiers];
        [center removeDeliveredNotificationsWithIdentifiers:identifiers];
    }

private:
    TarvelNotificationDelegate *m_delegate;
    NSMutableDictionary<NSString *, UNNotificationCategory *> *m_categories;
};

// Outside an application bundle the system's centre refuses to exist: notifications show nothing.
class SilentUserNotificationCenter final : public UserNotificationCenter {
public:
    void registerCategory(const QString &, const QList<UserNotificationAction> &) override {}
    void setResponseHandler(ResponseHandler) override {}
    void post(const UserNotificationRequest &) override {}
    void remove(const QString &) override {}
};

} // namespace

std::unique_ptr<UserNotificationCenter> UserNotificationCenter::create()
{
    if (!NSBundle.mainBundle.bundleIdentifier)
        return std::make_unique<SilentUserNotificationCenter>();
    return std::make_unique<MacUserNotificationCenter>();
}
