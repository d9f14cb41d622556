#pragma once

#include <QList>
#include <QString>
#include <QStringView>

// Find and replace over a composer's text, by its plain characters: the matches of a literal
// needle, optionally case-sensitive and whole-word only.
namespace TextSearch {

struct Options {
    bool caseSensitive = false;
    bool wholeWords = false;
};

struct Match {
    qsizetype start = 0;
    qsizetype length = 0;

    friend bool operator==(const Match &, const Match &) = default;
};

// Matches in order, not overlapping, at most limit of them.
QList<Match> findAll(QStringView text, QStringView needle, Options options, qsizetype limit = -1);
// The match to go to from a position: the first one at or after it going forward, the last one
// before it going backward, wrapping around; -1 when there is none.
qsizetype nextMatch(const QList<Match> &matches, qsizetype position, bool backward);

} // namespace TextSearch
