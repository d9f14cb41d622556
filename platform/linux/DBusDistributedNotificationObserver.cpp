#include "platform/linux/DBusDistributedNotificationObserver.h"

#include "platform/linux/DBusContract.h"

#include <QDBusArgument>
#include <QDBusConnection>

DBusDistributedNotificationObserver::DBusDistributedNotificationObserver(QObject *parent)
    : DistributedNotificationObserver(parent)
{
    DBusContract::registerTypes();
}

bool DBusDistributedNotificationObserver::observe(const QString &name)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    if (!m_subscribed) {
        // Qt DBus delivers signals to slots named by signature only. Taking the whole
        // message lets a sender with a wrong signature be ignored instead of dropped
        // silently by the match.
        m_subscribed = bus.connect(QString(), DBusContract::objectPath, DBusContract::interfaceName,
                                   DBusContract::postedSignal, this, SLOT(handlePosted(QDBusMessage)));
        if (!m_subscribed)
            return false;
    }
    m_names.insert(name);
    return true;
}

void DBusDistributedNotificationObserver::handlePosted(const QDBusMessage &message)
{
    if (message.signature() != DBusContract::postedSignature)
        return;
    const QList<QVariant> arguments = message.arguments();
    const QString name = arguments.at(0).toString();
    if (!m_names.contains(name))
        return;
    DistributedNotificationUserInfo userInfo;
    arguments.at(1).value<QDBusArgument>() >> userInfo;
    Q_EMIT notificationPosted(name, userInfo);
}

std::unique_ptr<DistributedNotificationObserver> DistributedNotificationObserver::create(QObject *parent)
{
    return std::make_unique<DBusDistributedNotificationObserver>(parent);
}
