#pragma once

#include <QList>
#include <QMap>
#include <QString>

#include <functional>
#include <memory>

// One notification for the user, shown at once.
struct UserNotificationRequest {
    // Names the notification: posting again with the same identifier replaces it, and
    // remove() takes it away.
    QString identifier;
    QString title;
    QString subtitle;
    QString body;
    // Which kind of notification this is; it decides the actions offered with it.
    QString categoryIdentifier;
    // Notifications with the same thread identifier are grouped where the desktop groups.
    QString threadIdentifier;
    QMap<QString, QString> userInfo;
    bool playsDefaultSound = true;
};

// An action button of a category. The click on the notification itself is the default
// action and needs no entry.
struct UserNotificationAction {
    QString identifier;
    QString title;
};

// What the user did with a notification.
struct UserNotificationResponse {
    QString notificationIdentifier;
    // An action's identifier, or UserNotificationCenter::defaultActionIdentifier.
    QString actionIdentifier;
    QMap<QString, QString> userInfo;
};

// The desktop's notification service. A desktop without one is not an error: posting
// then shows nothing.
class UserNotificationCenter {
public:
    using ResponseHandler = std::function<void(const UserNotificationResponse &)>;

    // The click on the notification itself.
    static inline const QString defaultActionIdentifier = QStringLiteral("default");

    virtual ~UserNotificationCenter() = default;

    // The implementation for this platform. Create it after the Q(Core)Application.
    static std::unique_ptr<UserNotificationCenter> create();

    // The actions offered with every notification of the category.
    virtual void registerCategory(const QString &categoryIdentifier,
                                  const QList<UserNotificationAction> &actions) = 0;
    // Called on the main thread for each action taken; the notification is taken away
    // afterwards.
    virtual void setResponseHandler(ResponseHandler handler) = 0;
    // Fire and forget.
    virtual void post(const UserNotificationRequest &request) = 0;
    virtual void remove(const QString &identifier) = 0;
};
