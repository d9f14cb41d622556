#include "platform/linux/NotificationServer.h"

#include <QDBusConnection>
#include <QDBusReply>

namespace NotificationServer {

const QString serviceName = QStringLiteral("org.freedesktop.Notifications");

bool isRunning(QDBusConnection &bus)
{
    if (!bus.isConnected())
        return false;
    const QDBusReply<bool> owned = bus.call(isRunningQuestion());
    return owned.isValid() && owned.value();
}

QDBusMessage isRunningQuestion()
{
    QDBusMessage question = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("NameHasOwner"));
    question << serviceName;
    return question;
}

QString installRemedy()
{
    return QStringLiteral("Install and start one: your desktop's own, or dunst, mako or xfce4-notifyd.");
}

} // namespace NotificationServer
