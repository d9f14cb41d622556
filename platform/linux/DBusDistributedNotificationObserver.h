#pragma once

#include "platform/DistributedNotificationObserver.h"

#include <QDBusMessage>
#include <QSet>

class DBusDistributedNotificationObserver final : public DistributedNotificationObserver {
    Q_OBJECT

public:
    explicit DBusDistributedNotificationObserver(QObject *parent = nullptr);

    bool observe(const QString &name) override;

private Q_SLOTS:
    void handlePosted(const QDBusMessage &message);

private:
    QSet<QString> m_names;
    bool m_subscribed = false;
};
