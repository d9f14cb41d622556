#include "platform/FileRevealer.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QStringList>
#include <QUrl>

namespace FileRevealer {

bool showItem(const QString &path)
{
    const QString service = QStringLiteral("org.freedesktop.FileManager1");
    QDBusConnection bus = QDBusConnection::sessionBus();
    QDBusConnectionInterface *names = bus.isConnected() ? bus.interface() : nullptr;
    if (!names)
        return false;
    // Without an owner or an activatable service the call would only wait for its timeout.
    const bool owned = names->isServiceRegistered(service).value();
    const bool activatable = !owned && names->activatableServiceNames().value().contains(service);
    if (!owned && !activatable)
        return false;
    QDBusMessage call = QDBusMessage::createMethodCall(
        service, QStringLiteral("/org/freedesktop/FileManager1"), service, QStringLiteral("ShowItems"));
    call << QStringList{QUrl::fromLocalFile(path).toString()} << QString();
    return bus.call(call, QDBus::Block, 5000).type() == QDBusMessage::ReplyMessage;
}

} // namespace FileRevealer
