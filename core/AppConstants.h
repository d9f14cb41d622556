#pragma once

#include <QString>

// Names both sides of the request exchange must agree on.
namespace AppConstants {
inline const QString appName = QStringLiteral("Tarvel");
inline const QString appBundleIdentifier = QStringLiteral("zq.tarvel");
inline const QString requestNotificationName = QStringLiteral("zq.tarvel.request-created");
inline const QString debugWindowRequestNotificationName = QStringLiteral("zq.tarvel.debug-window-request");
} // namespace AppConstants
