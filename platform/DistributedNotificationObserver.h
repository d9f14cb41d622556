#pragma once

#include "platform/DistributedNotificationPoster.h"

#include <QObject>

#include <memory>

// Delivers the distributed notifications of the user's session on the main thread.
class DistributedNotificationObserver : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // Starts delivering notifications with this name; false when the channel is not available.
    virtual bool observe(const QString &name) = 0;

    static std::unique_ptr<DistributedNotificationObserver> create(QObject *parent = nullptr);

Q_SIGNALS:
    void notificationPosted(const QString &name, const DistributedNotificationUserInfo &userInfo);
};
