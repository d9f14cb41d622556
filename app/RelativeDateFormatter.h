#pragma once

#include <QDateTime>
#include <QString>

// How long ago (or how far ahead) a moment is, in words: "now", "12 seconds ago",
// "1 minute ago", "3 days ago", "in 5 minutes". The largest whole unit is used, counted
// down, so "59 minutes ago" never turns into "1 hour ago" early.
namespace RelativeDateFormatter {

QString localizedString(const QDateTime &date, const QDateTime &relativeTo);

} // namespace RelativeDateFormatter
