#pragma once

#include <QString>

// The session-bus contract between tarvel-edit and the application. The running
// application owns the bus name; a distributed notification is the signal
// Posted(s name, a{ss} userInfo) on the object path below.
namespace DBusContract {
inline const QString serviceName = QStringLiteral("zq.tarvel");
inline const QString objectPath = QStringLiteral("/zq/tarvel");
inline const QString interfaceName = QStringLiteral("zq.tarvel.DistributedNotifications");
inline const QString postedSignal = QStringLiteral("Posted");
inline const QString postedSignature = QStringLiteral("sa{ss}");

// Makes a{ss} known to Qt DBus; cheap and safe to call more than once.
void registerTypes();
} // namespace DBusContract
