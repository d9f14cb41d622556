#pragma once

#include "platform/UserNotificationCenter.h"
#include "quicktasks/QuickTaskSession.h"

#include <QString>

// The notification that announces the end of a quick task.
namespace QuickTaskCompletionNotification {

inline const QString categoryIdentifier = QStringLiteral("QuickTaskCompletion");
inline const QString copyFinalResponseActionIdentifier = QStringLiteral("QuickTaskCopyFinalResponse");
inline const QString copyFinalResponseActionTitle = QStringLiteral("Copy");
inline const QString sessionIdentifierKey = QStringLiteral("QuickTaskSessionIdentifier");
inline const QString threadIdentifier = QStringLiteral("TarvelQuickTasks");

inline constexpr int subtitleLimit = 64;
inline constexpr int bodyPromptLimit = 48;
inline constexpr int bodyResponseLimit = 96;

// Line breaks become blanks, then white space is trimmed at both ends.
QString singleLine(const QString &text);
// The text whole when it has at most limit characters (as the user counts them), else
// its first limit characters and "...".
QString truncated(const QString &text, int limit);

// "<short title> task <status word>", e.g. "Codex task Succeeded".
QString title(const QuickTaskSession &session);
// The prompt on one line, cut at 64.
QString subtitle(const QuickTaskSession &session);
// The prompt on one line cut at 48, and on a second line the final response cut at 96.
QString body(const QuickTaskSession &session);

UserNotificationRequest request(const QuickTaskSession &session);

// The category with its one action, "Copy".
QList<UserNotificationAction> categoryActions();

} // namespace QuickTaskCompletionNotification
