#include "editing/FuzzyMatcher.h"

#include <algorithm>

namespace FuzzyMatcher {
namespace {

constexpr int kMatch = 16;
constexpr int kPathStartBonus = 24;
constexpr int kWordStartBonus = 16;
constexpr int kConsecutiveBonus = 12;
constexpr int kGapStart = 5;
constexpr int kGapExtension = 1;
constexpr qsizetype kLongestCountedGap = 20;
constexpr int kLastSegmentBonus = 24;
// Shorter candidates win ties, up to this many characters.
constexpr qsizetype kLongestCountedLength = 256;

bool isSeparator(QChar character)
{
    return character == u'/' || character == u'\\';
}

int boundaryBonus(QStringView candidate, qsizetype index)
{
    if (index == 0 || isSeparator(candidate[index - 1]))
        return kPathStartBonus;
    const QChar previous = candidate[index - 1];
    const QChar current = candidate[index];
    if (!previous.isLetterOrNumber())
        return kWordStartBonus;
    if (previous.isLower() && current.isUpper())
        return kWordStartBonus;
    return 0;
}

// The shortest window that ends at the first place the whole query is found from `from` on,
// and the characters taken in it. False when the query is not there.
bool align(QStringView query, QStringView folded, qsizetype from, QList<qsizetype> &positions)
{
    qsizetype next = 0;
    qsizetype end = -1;
    for (qsizetype index = from; index < folded.size(); ++index) {
        if (folded[index] == query[next] && ++next == query.size()) {
            end = index;
            break;
        }
    }
    if (end < 0)
        return false;
    qsizetype start = end;
    next = query.size() - 1;
    for (qsizetype index = end; index >= from; --index) {
        if (folded[index] != query[next])
            continue;
        if (next == 0) {
            start = index;
            break;
        }
        --next;
    }
    positions.clear();
    next = 0;
    for (qsizetype index = start; index <= end && next < query.size(); ++index) {
        if (folded[index] == query[next]) {
            positions.append(index);
            ++next;
        }
    }
    return true;
}

int scorePositions(QStringView candidate, const QList<qsizetype> &positions)
{
    int total = 0;
    qsizetype previous = -2;
    for (const qsizetype position : positions) {
        total += kMatch + boundaryBonus(candidate, position);
        if (position == previous + 1)
            total += kConsecutiveBonus;
        else if (previous >= 0)
            total -= kGapStart + int(std::min(position - previous - 1, kLongestCountedGap)) * kGapExtension;
        previous = position;
    }
    return total - int(std::min(candidate.size(), kLongestCountedLength) / 16);
}

} // namespace

QString foldedQuery(QStringView query)
{
    QString folded;
    folded.reserve(query.size());
    for (const QChar character : query) {
        if (!character.isSpace())
            folded.append(character.toLower());
    }
    return folded;
}

QString foldedCandidate(QStringView candidate)
{
    QString folded(candidate.size(), Qt::Uninitialized);
    QChar *out = folded.data();
    for (const QChar character : candidate)
        *out++ = character.toLower();
    return folded;
}

std::optional<int> score(QStringView query, QStringView candidate, QStringView folded,
                         QList<qsizetype> *positions)
{
    if (query.isEmpty()) {
        if (positions)
            positions->clear();
        return -int(std::min(candidate.size(), kLongestCountedLength) / 16);
    }
    QList<qsizetype> taken;
    if (!align(query, folded, 0, taken))
        return std::nullopt;
    int best = scorePositions(candidate, taken);
    // The same query within the last path segment alone, which is what a name usually means.
    qsizetype lastSegment = candidate.size();
    while (lastSegment > 0 && !isSeparator(candidate[lastSegment - 1]))
        --lastSegment;
    if (lastSegment > 0 && taken.first() < lastSegment) {
        QList<qsizetype> inLastSegment;
        if (align(query, folded, lastSegment, inLastSegment)) {
            const int segmentScore = scorePositions(candidate, inLastSegment) + kLastSegmentBonus;
            if (segmentScore > best) {
                best = segmentScore;
                taken = std::move(inLastSegment);
            }
        }
    } else {
        best += kLastSegmentBonus;
    }
    if (positions)
        *positions = std::move(taken);
    return best;
}

bool isWordStart(QStringView candidate, qsizetype index)
{
    return boundaryBonus(candidate, index) > 0;
}

std::optional<int> score(QStringView query, QStringView candidate, QList<qsizetype> *positions)
{
    return score(foldedQuery(query), candidate, foldedCandidate(candidate), positions);
}

} // namespace FuzzyMatcher
