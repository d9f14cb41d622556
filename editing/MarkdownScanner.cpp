#include "editing/MarkdownScanner.h"

#include <QList>

#include <algorithm>
#include <optional>

namespace MarkdownScanner {
namespace {

constexpr qsizetype kMaximumMarkerIndent = 3;
// How far an opening backtick, bracket or emphasis looks for its closing one: a long line full
// of unmatched ones (minified code) stays linear.
constexpr qsizetype kLongestInlineReach = 2000;
// A line longer than this is data (a log line, minified code): only its block state is read.
constexpr qsizetype kLongestScannedLine = 20000;

qsizetype indentOf(QStringView line)
{
    qsizetype index = 0;
    while (index < line.size() && line[index] == u' ')
        ++index;
    return index;
}

qsizetype runLength(QStringView line, qsizetype from, QChar character)
{
    qsizetype end = from;
    while (end < line.size() && line[end] == character)
        ++end;
    return end - from;
}

bool isBlank(QStringView text)
{
    for (const QChar character : text) {
        if (!character.isSpace())
            return false;
    }
    return true;
}

bool isWordCharacter(QChar character)
{
    return character.isLetterOrNumber() || character == u'_';
}

bool isTrailingPunctuation(QChar character)
{
    return QStringView(u".,;:!?)]}'\"").contains(character);
}

// Where a mention, an address or a path may begin: the line's start or after a space or bracket.
bool startsToken(QStringView line, qsizetype index)
{
    return index == 0 || line[index - 1].isSpace() || QStringView(u"([{\"'<").contains(line[index - 1]);
}

bool startsWithAt(QStringView line, qsizetype index, QStringView prefix)
{
    return line.mid(index).startsWith(prefix, Qt::CaseInsensitive);
}

class LineScanner final {
public:
    LineScanner(QStringView line, LineResult &result)
        : m_line(line)
        , m_result(result)
        , m_atomic(line.size(), false)
    {
    }

    // The markers at the start of a line outside code; returns where its inline text begins.
    qsizetype scanBlockMarkers()
    {
        qsizetype index = indentOf(m_line);
        if (index <= kMaximumMarkerIndent && index < m_line.size() && m_line[index] == u'#') {
            const qsizetype hashes = runLength(m_line, index, u'#');
            if (hashes <= 6 && (index + hashes == m_line.size() || m_line[index + hashes] == u' ')) {
                add(0, m_line.size(), SpanKind::heading);
                markAtomic(index, hashes);
                return index + hashes;
            }
        }
        // Quote markers, possibly nested ("> > text").
        while (index <= m_line.size() - 1 && m_line[index] == u'>') {
            qsizetype end = index + 1;
            if (end < m_line.size() && m_line[end] == u' ')
                ++end;
            add(index, 1, SpanKind::quoteMarker);
            markAtomic(index, 1);
            index = end;
        }
        while (index < m_line.size() && (m_line[index] == u' ' || m_line[index] == u'\t'))
            ++index;
        if (index >= m_line.size())
            return index;
        qsizetype marker = 0;
        if (QStringView(u"-*+").contains(m_line[index])) {
            marker = 1;
        } else if (m_line[index].isDigit()) {
            qsizetype digits = 0;
            while (index + digits < m_line.size() && m_line[index + digits].isDigit() && digits < 10)
                ++digits;
            if (digits <= 9 && index + digits < m_line.size() &&
                (m_line[index + digits] == u'.' || m_line[index + digits] == u')'))
                marker = digits + 1;
        }
        if (marker == 0 || (index + marker < m_line.size() && m_line[index + marker] != u' ' &&
                            m_line[index + marker] != u'\t'))
            return index;
        qsizetype length = marker;
        // A task list's box belongs to its marker: "- [ ]", "- [x]".
        const QStringView rest = m_line.mid(index + marker);
        if (rest.size() >= 4 && rest[0] == u' ' && rest[1] == u'[' && rest[3] == u']' &&
            QStringView(u" xX").contains(rest[2]))
            length += 4;
        add(index, length, SpanKind::listMarker);
        markAtomic(index, length);
        return index + length;
    }

    // Code spans, links, addresses, mentions and paths: what emphasis and spelling leave alone.
    void scanAtomicSpans(qsizetype from)
    {
        qsizetype index = from;
        while (index < m_line.size()) {
            const QChar character = m_line[index];
            if (m_atomic[index]) {
                ++index;
            } else if (character == u'\\') {
                index += 2;
            } else if (character == u'`') {
                index = scanCodeSpan(index);
            } else if (character == u'[') {
                index = scanLink(index);
            } else if (character == u'<') {
                index = scanAutolink(index);
            } else if (character == u'@' && startsToken(m_line, index)) {
                index = scanMention(index);
            } else if (startsToken(m_line, index) && isAddressStart(index)) {
                index = scanAddress(index);
            } else {
                ++index;
            }
        }
        scanPaths(from);
    }

    void scanEmphasis(qsizetype from)
    {
        QList<bool> consumed(m_line.size(), false);
        for (qsizetype index = from; index < m_line.size(); ++index) {
            const QChar character = m_line[index];
            if ((character != u'*' && character != u'_') || m_atomic[index] || consumed[index])
                continue;
            const qsizetype run = runLength(m_line, index, character);
            const qsizetype after = index + run;
            // An opener is followed by text; an underscore inside a word (snake_case) is no opener.
            const bool opens = run <= 3 && after < m_line.size() && !m_line[after].isSpace() &&
                               !(character == u'_' && index > 0 && isWordCharacter(m_line[index - 1]));
            if (!opens) {
                index = after - 1;
                continue;
            }
            const qsizetype closer = findCloser(after, character, run);
            if (closer < 0) {
                index = after - 1;
                continue;
            }
            for (qsizetype mark = closer; mark < closer + run; ++mark)
                consumed[mark] = true;
            add(index, closer + run - index, run == 1 ? SpanKind::emphasis : SpanKind::strong);
            index = after - 1;
        }
    }

    void collectWords(qsizetype from)
    {
        qsizetype index = from;
        while (index < m_line.size()) {
            if (m_atomic[index] || !isWordCharacter(m_line[index])) {
                ++index;
                continue;
            }
            qsizetype end = index;
            while (end < m_line.size() && !m_atomic[end] &&
                   (isWordCharacter(m_line[end]) ||
                    (isApostrophe(m_line[end]) && end + 1 < m_line.size() && m_line[end + 1].isLetter())))
                ++end;
            if (isCheckedWord(m_line.mid(index, end - index)))
                m_result.words.append({index, end - index});
            index = end;
        }
    }

private:
    void add(qsizetype start, qsizetype length, SpanKind kind)
    {
        if (length > 0)
            m_result.spans.append({start, length, kind});
    }

    void markAtomic(qsizetype start, qsizetype length)
    {
        for (qsizetype index = start; index < start + length && index < m_line.size(); ++index)
            m_atomic[index] = true;
    }

    void addAtomic(qsizetype start, qsizetype length, SpanKind kind)
    {
        add(start, length, kind);
        markAtomic(start, length);
    }

    qsizetype scanCodeSpan(qsizetype index)
    {
        const qsizetype run = runLength(m_line, index, u'`');
        const qsizetype reach = std::min(m_line.size(), index + run + kLongestInlineReach);
        for (qsizetype search = index + run; search < reach;) {
            if (m_line[search] != u'`') {
                ++search;
                continue;
            }
            const qsizetype closing = runLength(m_line, search, u'`');
            if (closing == run) {
                addAtomic(index, search + run - index, SpanKind::inlineCode);
                return search + run;
            }
            search += closing;
        }
        return index + run; // unclosed: the backticks are text
    }

    qsizetype scanLink(qsizetype index)
    {
        const qsizetype close = findWithin(u']', index + 1, index);
        if (close < 0 || close + 1 >= m_line.size() || m_line[close + 1] != u'(')
            return index + 1;
        const qsizetype end = findWithin(u')', close + 2, index);
        if (end < 0)
            return index + 1;
        // The text is prose (spelled and emphasised); only its brackets and the target are not.
        add(index, close + 1 - index, SpanKind::linkText);
        markAtomic(index, 1);
        markAtomic(close, 1);
        addAtomic(close + 1, end + 1 - (close + 1), SpanKind::address);
        return index + 1;
    }

    qsizetype scanAutolink(qsizetype index)
    {
        const qsizetype end = findWithin(u'>', index + 1, index);
        if (end < 0)
            return index + 1;
        const QStringView inside = m_line.mid(index + 1, end - index - 1);
        const qsizetype colon = inside.indexOf(u':');
        bool plain = colon > 0;
        for (const QChar character : inside)
            plain = plain && !character.isSpace();
        if (!plain)
            return index + 1;
        addAtomic(index, end + 1 - index, SpanKind::address);
        return end + 1;
    }

    qsizetype scanMention(qsizetype index)
    {
        qsizetype end = index + 1;
        if (end < m_line.size() && m_line[end] == u'"') {
            const qsizetype quote = findWithin(u'"', end + 1, index);
            if (quote > end + 1) {
                addAtomic(index, quote + 1 - index, SpanKind::mention);
                return quote + 1;
            }
            return index + 1;
        }
        while (end < m_line.size() && !m_line[end].isSpace())
            ++end;
        while (end > index + 1 && isTrailingPunctuation(m_line[end - 1]))
            --end;
        if (end == index + 1)
            return index + 1;
        addAtomic(index, end - index, SpanKind::mention);
        return end;
    }

    bool isAddressStart(qsizetype index) const
    {
        for (const QStringView scheme :
             {QStringView(u"https://"), QStringView(u"http://"), QStringView(u"ftp://"),
              QStringView(u"file://"), QStringView(u"www.")}) {
            if (startsWithAt(m_line, index, scheme))
                return true;
        }
        return false;
    }

    qsizetype scanAddress(qsizetype index)
    {
        qsizetype end = index;
        while (end < m_line.size() && !m_line[end].isSpace() && m_line[end] != u'<')
            ++end;
        while (end > index && isTrailingPunctuation(m_line[end - 1]))
            --end;
        addAtomic(index, end - index, SpanKind::address);
        return end;
    }

    // White-space separated tokens that name a file: a slash or backslash, or a dot between word
    // characters ("config.toml", "e.g").
    void scanPaths(qsizetype from)
    {
        qsizetype index = from;
        while (index < m_line.size()) {
            if (m_line[index].isSpace()) {
                ++index;
                continue;
            }
            qsizetype end = index;
            bool atomic = false;
            while (end < m_line.size() && !m_line[end].isSpace()) {
                atomic = atomic || m_atomic[end];
                ++end;
            }
            if (!atomic) {
                qsizetype start = index;
                qsizetype stop = end;
                while (start < stop && QStringView(u"(\"'*_").contains(m_line[start]))
                    ++start;
                while (stop > start && (isTrailingPunctuation(m_line[stop - 1]) || m_line[stop - 1] == u'*' ||
                                        m_line[stop - 1] == u'_'))
                    --stop;
                if (looksLikePath(m_line.mid(start, stop - start)))
                    addAtomic(start, stop - start, SpanKind::path);
            }
            index = end;
        }
    }

    static bool looksLikePath(QStringView token)
    {
        if (token.size() < 2)
            return false;
        if (token.contains(u'/') || token.contains(u'\\') || token.startsWith(u'~'))
            return true;
        for (qsizetype index = 1; index + 1 < token.size(); ++index) {
            if (token[index] == u'.' && isWordCharacter(token[index - 1]) &&
                isWordCharacter(token[index + 1]))
                return true;
        }
        return false;
    }

    qsizetype findCloser(qsizetype from, QChar character, qsizetype run) const
    {
        const qsizetype reach = std::min(m_line.size(), from + kLongestInlineReach);
        for (qsizetype index = from; index < reach; ++index) {
            if (m_line[index] != character || m_atomic[index])
                continue;
            const qsizetype length = runLength(m_line, index, character);
            const qsizetype after = index + length;
            const bool closes =
                length == run && !m_line[index - 1].isSpace() &&
                !(character == u'_' && after < m_line.size() && isWordCharacter(m_line[after]));
            if (closes)
                return index;
            index = after - 1;
        }
        return -1;
    }

    // The next character at or after from, no further than the reach from origin.
    qsizetype findWithin(QChar character, qsizetype from, qsizetype origin) const
    {
        const qsizetype end = std::min(m_line.size(), origin + kLongestInlineReach);
        if (from >= end)
            return -1;
        const qsizetype found = m_line.mid(from, end - from).indexOf(character);
        return found < 0 ? -1 : from + found;
    }

    static bool isApostrophe(QChar character) { return character == u'\'' || character == u'\u2019'; }

    // Prose words only: no digits or underscores, no inner capitals (identifiers), no acronyms.
    static bool isCheckedWord(QStringView word)
    {
        bool upper = false;
        bool lower = false;
        for (qsizetype index = 0; index < word.size(); ++index) {
            const QChar character = word[index];
            if (character.isDigit() || character == u'_')
                return false;
            if (character.isUpper()) {
                if (index > 0)
                    return false;
                upper = true;
            } else if (character.isLower()) {
                lower = true;
            }
        }
        return lower || (upper && word.size() == 1);
    }

    QStringView m_line;
    LineResult &m_result;
    QList<bool> m_atomic;
};

// A fence line: up to three spaces, then three or more backticks or tildes.
std::optional<LineState> fenceOf(QStringView line)
{
    const qsizetype indent = indentOf(line);
    if (indent > kMaximumMarkerIndent || indent >= line.size())
        return std::nullopt;
    const QChar character = line[indent];
    if (character != u'`' && character != u'~')
        return std::nullopt;
    const qsizetype run = runLength(line, indent, character);
    if (run < 3)
        return std::nullopt;
    // A backtick fence's info string has no backticks (it would be inline code).
    if (character == u'`' && line.mid(indent + run).contains(u'`'))
        return std::nullopt;
    return LineState{character.unicode(), int(run)};
}

} // namespace

int LineState::toInt() const
{
    if (!isInFence())
        return 0;
    return (fenceLength << 2) | (fence == u'`' ? 1 : 2);
}

LineState LineState::fromInt(int value)
{
    if (value <= 0 || (value & 3) == 0 || (value & 3) == 3)
        return {};
    return {(value & 3) == 1 ? u'`' : u'~', value >> 2};
}

LineResult scan(QStringView line, LineState state, bool collectWords)
{
    LineResult result;
    if (state.isInFence()) {
        const qsizetype indent = indentOf(line);
        const qsizetype run = indent < line.size() ? runLength(line, indent, QChar(state.fence)) : 0;
        if (indent <= kMaximumMarkerIndent && run >= state.fenceLength && isBlank(line.mid(indent + run))) {
            result.spans.append({0, line.size(), SpanKind::fence});
            return result;
        }
        if (!line.isEmpty())
            result.spans.append({0, line.size(), SpanKind::codeBlock});
        result.next = state;
        return result;
    }
    if (const std::optional<LineState> opened = fenceOf(line)) {
        result.spans.append({0, line.size(), SpanKind::fence});
        result.next = *opened;
        return result;
    }
    if (line.size() > kLongestScannedLine)
        return result;
    LineScanner scanner(line, result);
    const qsizetype text = scanner.scanBlockMarkers();
    scanner.scanAtomicSpans(text);
    scanner.scanEmphasis(text);
    if (collectWords)
        scanner.collectWords(0);
    return result;
}

} // namespace MarkdownScanner
