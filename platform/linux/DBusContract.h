#pragma once

#include "platform/linux/DBusNames.h"

#include <QString>

// The session-bus contract between tarvel-edit and the application. The running
// application owns the bus name; a distributed notification is the signal
// Posted(s name, a{ss} userInfo) on the object path below.
namespace DBusContract {
inline const QString serviceName = QString::fromLatin1(DBusNames::serviceName);
inline const QString objectPath = QString::fromLatin1(DBusNames::objectPath);
inline const QString interfaceName = QString::fromLatin1(DBusNames::interfaceName);
inline const QString postedSignal = QString::fromLatin1(DBusNames::postedSignal);
inline const QString postedSignature = QStringLiteral("sa{ss}");

// Makes a{ss} known to Qt DBus; cheap and safe to call more than once.
void registerTypes();
} // namespace DBusContract
