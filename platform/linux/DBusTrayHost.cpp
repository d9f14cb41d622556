#include "platform/TrayHost.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QtGlobal>

namespace {

QtMessageHandler previousHandler = nullptr;

// Without a StatusNotifierItem host Qt falls back to an XEmbed tray, which connects to a signal
// that only its X11 platform has: on Wayland that fails with a warning although nothing more is
// wrong than the missing tray, which `tarvel doctor` reports.
void dropXEmbedConnectionWarning(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    if (type == QtWarningMsg && message.contains(u"QPlatformNativeInterface::systemTrayWindowChanged"))
        return;
    if (previousHandler != nullptr)
        previousHandler(type, context, message);
}

} // namespace

namespace TrayHost {

void quietenFallbackWarnings()
{
    if (previousHandler == nullptr)
        previousHandler = qInstallMessageHandler(dropXEmbedConnectionWarning);
}

bool exportsMenus()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    return bus.isConnected() && bus.interface() &&
           bus.interface()->isServiceRegistered(QStringLiteral("org.kde.StatusNotifierWatcher")).value();
}

} // namespace TrayHost
