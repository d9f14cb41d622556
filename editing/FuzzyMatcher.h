#pragma once

#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

// Scores a typed query against a path or a prompt: the query's characters must appear in the
// candidate in order (a subsequence, ignoring case). Characters at the start of a path segment
// or of a word, and runs of consecutive characters, score more; gaps score less; a match that
// lies in the last path segment scores more than one spread over folders.
namespace FuzzyMatcher {

// The query folded for matching: lower case, white space removed.
QString foldedQuery(QStringView query);
// The candidate folded the same way (white space kept, so positions stay put).
QString foldedCandidate(QStringView candidate);

// The score of a folded query against a candidate and its folded form, or nothing when the query
// is not a subsequence of it. positions, when given, receives the matched indices.
std::optional<int> score(QStringView foldedQuery, QStringView candidate, QStringView foldedCandidate,
                         QList<qsizetype> *positions = nullptr);
// Whether a character begins a path segment or a word (after a separator, or a capital after a
// small letter).
bool isWordStart(QStringView candidate, qsizetype index);

// The same for a query and a candidate as typed.
std::optional<int> score(QStringView query, QStringView candidate, QList<qsizetype> *positions = nullptr);

} // namespace FuzzyMatcher
