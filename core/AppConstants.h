#pragma once

#include "core/ExchangeNames.h"

#include <QString>

// Names both sides of the request exchange must agree on.
namespace AppConstants {
inline const QString appName = QString::fromLatin1(ExchangeNames::appName);
inline const QString appBundleIdentifier = QString::fromLatin1(ExchangeNames::bundleIdentifier);
inline const QString requestNotificationName = QString::fromLatin1(ExchangeNames::requestNotification);
inline const QString debugWindowRequestNotificationName = QStringLiteral("zq.tarvel.debug-window-request");
} // namespace AppConstants
