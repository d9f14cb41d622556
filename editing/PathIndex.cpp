#include "editing/PathIndex.h"

#include "editing/FuzzyMatcher.h"

#include <algorithm>

namespace {

// One bit per letter, digit and common path character, so that most entries that cannot match
// are passed over without looking at their characters.
quint64 characterBit(QChar character)
{
    const char16_t code = character.unicode();
    if (code >= u'a' && code <= u'z')
        return quint64(1) << (code - u'a');
    if (code >= u'0' && code <= u'9')
        return quint64(1) << (26 + code - u'0');
    switch (code) {
    case u'/':
        return quint64(1) << 36;
    case u'.':
        return quint64(1) << 37;
    case u'-':
        return quint64(1) << 38;
    case u'_':
        return quint64(1) << 39;
    default:
        return quint64(1) << 40;
    }
}

quint64 maskOf(QStringView folded)
{
    quint64 mask = 0;
    for (const QChar character : folded)
        mask |= characterBit(character);
    return mask;
}

} // namespace

PathIndex::PathIndex() = default;

PathIndex::PathIndex(QList<Entry> entries, bool truncated)
    : m_entries(std::move(entries))
    , m_truncated(truncated)
{
    std::stable_sort(m_entries.begin(), m_entries.end(), [](const Entry &left, const Entry &right) {
        const qsizetype leftDepth = left.path.count(u'/');
        const qsizetype rightDepth = right.path.count(u'/');
        if (leftDepth != rightDepth)
            return leftDepth < rightDepth;
        return left.path < right.path;
    });
    m_folded.reserve(m_entries.size());
    m_masks.reserve(m_entries.size());
    for (const Entry &entry : std::as_const(m_entries)) {
        m_folded.append(FuzzyMatcher::foldedCandidate(entry.path));
        m_masks.append(maskOf(m_folded.constLast()));
    }
}

QList<PathIndex::Match> PathIndex::search(QStringView query, qsizetype limit)
{
    const QString folded = FuzzyMatcher::foldedQuery(query);
    const quint64 queryMask = maskOf(folded);
    const bool narrows = m_hasLastSearch && folded.startsWith(m_lastQuery);
    QList<qsizetype> candidates;
    QList<Match> matches;
    const auto consider = [&](qsizetype index) {
        if ((m_masks.at(index) & queryMask) != queryMask)
            return;
        const std::optional<int> score =
            FuzzyMatcher::score(folded, m_entries.at(index).path, m_folded.at(index));
        if (!score)
            return;
        candidates.append(index);
        matches.append({index, *score});
    };
    if (narrows) {
        for (const qsizetype index : std::as_const(m_lastCandidates))
            consider(index);
    } else {
        for (qsizetype index = 0; index < size(); ++index)
            consider(index);
    }
    m_lastQuery = folded;
    m_lastCandidates = std::move(candidates);
    m_hasLastSearch = true;

    const auto better = [](const Match &left, const Match &right) {
        return left.score != right.score ? left.score > right.score : left.entry < right.entry;
    };
    const qsizetype kept = std::min(limit, matches.size());
    std::partial_sort(matches.begin(), matches.begin() + kept, matches.end(), better);
    matches.resize(kept);
    return matches;
}
