#include "platform/linux/GlobalShortcutsPortal.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>

namespace GlobalShortcutsPortal {

bool isOffered()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") || !bus.isConnected())
        return false;
    QDBusMessage get = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.portal.Desktop"), QStringLiteral("/org/freedesktop/portal/desktop"),
        QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    get << QStringLiteral("org.freedesktop.portal.GlobalShortcuts") << QStringLiteral("version");
    const QDBusMessage reply = bus.call(get, QDBus::Block, 5000);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty())
        return false;
    return qvariant_cast<QDBusVariant>(reply.arguments().constFirst()).variant().toUInt() > 0;
}

} // namespace GlobalShortcutsPortal
