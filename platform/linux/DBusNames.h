#pragma once

// The session-bus names of the contract between tarvel-edit and the application, as plain text
// for tarvel-edit's bus client; DBusContract makes Qt's strings from them.
namespace DBusNames {
inline constexpr char serviceName[] = "zq.tarvel";
inline constexpr char objectPath[] = "/zq/tarvel";
inline constexpr char interfaceName[] = "zq.tarvel.DistributedNotifications";
inline constexpr char postedSignal[] = "Posted";
} // namespace DBusNames
