#include "platform/DistributedNotificationPoster.h"

#include "platform/linux/DBusContract.h"

#include <QDBusConnection>
#include <QDBusMessage>

namespace {

class DBusDistributedNotificationPoster final : public DistributedNotificationPoster {
public:
    DBusDistributedNotificationPoster() { DBusContract::registerTypes(); }

    bool isAvailable() const override { return QDBusConnection::sessionBus().isConnected(); }

    bool post(const QString &name, const DistributedNotificationUserInfo &userInfo) override
    {
        QDBusMessage signal = QDBusMessage::createSignal(
            DBusContract::objectPath, DBusContract::interfaceName, DBusContract::postedSignal);
        signal << name << QVariant::fromValue(userInfo);
        return QDBusConnection::sessionBus().send(signal);
    }
};

} // namespace

std::unique_ptr<DistributedNotificationPoster> DistributedNotificationPoster::create()
{
    return std::make_unique<DBusDistributedNotificationPoster>();
}
