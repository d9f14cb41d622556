#include "platform/linux/NotificationServer.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

namespace NotificationServer {

const QString serviceName = QStringLiteral("org.freedesktop.Notifications");

bool isRunning(QDBusConnection &bus)
{
    return bus.isConnected() && bus.interface() && bus.interface()->isServiceRegistered(serviceName).value();
}

QString installRemedy()
{
    return QStringLiteral("Install and start one: your desktop's own, or dunst, mako or xfce4-notifyd.");
}

} // namespace NotificationServer
