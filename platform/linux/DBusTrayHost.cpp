#include "platform/TrayHost.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>

namespace TrayHost {

bool exportsMenus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() &&
           bus.interface()->isServiceRegistered(QStringLiteral("org.kde.StatusNotifierWatcher")).value();
}

} // namespace TrayHost
