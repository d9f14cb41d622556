#include "platform/linux/DBusApplicationInstance.h"

#include "platform/linux/DBusContract.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

namespace {
const QString kApplicationInterface = QStringLiteral("zq.tarvel.Application");
} // namespace

ApplicationInstance::Claim DBusApplicationInstance::claim()
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return Claim::unavailable;
    // Export first, so a second copy that sees the name can call Reopen at once.
    bus.registerObject(DBusContract::objectPath, kApplicationInterface, this,
                       QDBusConnection::ExportScriptableSlots);
    const auto reply = bus.interface()->registerService(DBusContract::serviceName,
                                                        QDBusConnectionInterface::DontQueueService,
                                                        QDBusConnectionInterface::DontAllowReplacement);
    if (reply.isValid() && reply.value() == QDBusConnectionInterface::ServiceRegistered)
        return Claim::primary;

    bus.unregisterObject(DBusContract::objectPath);
    const QDBusMessage call = QDBusMessage::createMethodCall(
        DBusContract::serviceName, DBusContract::objectPath, kApplicationInterface, QStringLiteral("Reopen"));
    bus.call(call, QDBus::Block, 2000);
    return Claim::alreadyRunning;
}

void DBusApplicationInstance::Reopen()
{
    Q_EMIT reopenRequested();
}

std::unique_ptr<ApplicationInstance> ApplicationInstance::create(QObject *parent)
{
    return std::make_unique<DBusApplicationInstance>(parent);
}
