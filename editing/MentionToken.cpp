#include "editing/MentionToken.h"

namespace MentionToken {
namespace {

constexpr qsizetype kLongestQuery = 256;

bool startsWord(QStringView line, qsizetype index)
{
    return index == 0 || line[index - 1].isSpace() || QStringView(u"([{\"'").contains(line[index - 1]);
}

} // namespace

std::optional<Token> at(QStringView line, qsizetype cursor)
{
    if (cursor <= 0 || cursor > line.size())
        return std::nullopt;
    for (qsizetype index = cursor - 1; index >= 0 && cursor - index <= kLongestQuery; --index) {
        const QChar character = line[index];
        if (character.isSpace())
            break;
        if (character != u'@' || !startsWord(line, index))
            continue;
        if (index + 1 < line.size() && line[index + 1] == u'"' && cursor > index + 1) {
            const qsizetype close = line.indexOf(u'"', index + 2);
            const qsizetype end = close < 0 ? line.size() : close + 1;
            return Token{index, end - index, line.mid(index + 2, cursor - index - 2).toString()};
        }
        qsizetype end = cursor;
        while (end < line.size() && !line[end].isSpace())
            ++end;
        return Token{index, end - index, line.mid(index + 1, cursor - index - 1).toString()};
    }
    // Inside a quoted mention, past a space.
    const qsizetype quoted = line.left(cursor).lastIndexOf(QStringView(u"@\""));
    if (quoted < 0 || !startsWord(line, quoted) || cursor - quoted > kLongestQuery ||
        line.mid(quoted + 2, cursor - quoted - 2).contains(u'"'))
        return std::nullopt;
    const qsizetype close = line.indexOf(u'"', cursor);
    const qsizetype end = close < 0 ? line.size() : close + 1;
    return Token{quoted, end - quoted, line.mid(quoted + 2, cursor - quoted - 2).toString()};
}

QString insertion(const QString &path, bool isFolder)
{
    const QString shown = isFolder ? path + u'/' : path;
    for (const QChar character : shown) {
        if (character.isSpace())
            return QStringLiteral("@\"") + shown + u'"';
    }
    return u'@' + shown;
}

} // namespace MentionToken
