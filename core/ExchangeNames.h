#pragma once

// The names the application and tarvel-edit must agree on, as plain text: tarvel-edit is built
// without Qt, and AppConstants and FileStore make their strings from these.
namespace ExchangeNames {
inline constexpr char appName[] = "Tarvel";
inline constexpr char bundleIdentifier[] = "zq.tarvel";
inline constexpr char requestNotification[] = "zq.tarvel.request-created";

// The folders of the request exchange, below the data folder's Tarvel folder.
inline constexpr char requestsFolder[] = "Requests";
inline constexpr char responsesFolder[] = "Responses";
inline constexpr char completedRequestsFolder[] = "CompletedRequests";
inline constexpr char malformedRequestsFolder[] = "MalformedRequests";

// A request file larger than this is refused unread by the application.
inline constexpr long long maximumRequestFileSize = 16 * 1024 * 1024;
} // namespace ExchangeNames
