#pragma once

#include <QMap>
#include <QString>

#include <memory>

// The string pairs that travel with a distributed notification.
using DistributedNotificationUserInfo = QMap<QString, QString>;

// Posts a notification that every process of the user's session can observe.
class DistributedNotificationPoster {
public:
    virtual ~DistributedNotificationPoster() = default;

    // False when the channel is not available (on Linux: no session bus).
    virtual bool isAvailable() const = 0;
    // Fire and forget; false when the notification could not be sent.
    virtual bool post(const QString &name, const DistributedNotificationUserInfo &userInfo = {}) = 0;

    static std::unique_ptr<DistributedNotificationPoster> create();
};
