#include "platform/linux/DBusContract.h"

#include "platform/DistributedNotificationPoster.h"

#include <QDBusMetaType>

namespace DBusContract {

void registerTypes()
{
    static const bool registered = [] {
        qDBusRegisterMetaType<DistributedNotificationUserInfo>();
        return true;
    }();
    Q_UNUSED(registered);
}

} // namespace DBusContract
