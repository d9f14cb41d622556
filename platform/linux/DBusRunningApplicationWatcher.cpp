#include "platform/linux/DBusRunningApplicationWatcher.h"

#include "platform/linux/DBusContract.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

DBusRunningApplicationWatcher::DBusRunningApplicationWatcher(QObject *parent)
    : RunningApplicationWatcher(parent)
    , m_watcher(DBusContract::serviceName, QDBusConnection::sessionBus(),
                QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration)
{
    // The match rule is on the bus before the constructor returns, and the bus answers
    // one connection's calls in order, so an isRunning() that follows sees every change.
    connect(&m_watcher, &QDBusServiceWatcher::serviceRegistered, this,
            [this] { Q_EMIT applicationDidLaunch(); });
    connect(&m_watcher, &QDBusServiceWatcher::serviceUnregistered, this,
            [this] { Q_EMIT applicationDidTerminate(); });
}

bool DBusRunningApplicationWatcher::canObserve() const
{
    return QDBusConnection::sessionBus().isConnected();
}

bool DBusRunningApplicationWatcher::isRunning() const
{
    const QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return false;
    const QDBusReply<bool> reply = bus.interface()->isServiceRegistered(DBusContract::serviceName);
    return reply.isValid() && reply.value();
}

std::unique_ptr<RunningApplicationWatcher> RunningApplicationWatcher::create(QObject *parent)
{
    return std::make_unique<DBusRunningApplicationWatcher>(parent);
}
