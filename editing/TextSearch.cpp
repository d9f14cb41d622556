#include "editing/TextSearch.h"

namespace TextSearch {
namespace {

bool isWordCharacter(QChar character)
{
    return character.isLetterOrNumber() || character == u'_';
}

} // namespace

QList<Match> findAll(QStringView text, QStringView needle, Options options, qsizetype limit)
{
    QList<Match> matches;
    if (needle.isEmpty())
        return matches;
    const Qt::CaseSensitivity sensitivity = options.caseSensitive ? Qt::CaseSensitive : Qt::CaseInsensitive;
    for (qsizetype found = text.indexOf(needle, 0, sensitivity); found >= 0;) {
        const qsizetype end = found + needle.size();
        const bool whole = !options.wholeWords || ((found == 0 || !isWordCharacter(text[found - 1])) &&
                                                   (end == text.size() || !isWordCharacter(text[end])));
        if (whole) {
            matches.append({found, needle.size()});
            if (limit >= 0 && matches.size() >= limit)
                break;
        }
        found = text.indexOf(needle, whole ? end : found + 1, sensitivity);
    }
    return matches;
}

qsizetype nextMatch(const QList<Match> &matches, qsizetype position, bool backward)
{
    if (matches.isEmpty())
        return -1;
    if (backward) {
        for (qsizetype index = matches.size() - 1; index >= 0; --index) {
            if (matches.at(index).start < position)
                return index;
        }
        return matches.size() - 1;
    }
    for (qsizetype index = 0; index < matches.size(); ++index) {
        if (matches.at(index).start >= position)
            return index;
    }
    return 0;
}

} // namespace TextSearch
