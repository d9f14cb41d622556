#pragma once

#include <QList>
#include <QStringView>

// The Markdown that codex, claude and opencode read, found line by line for the composer's
// highlighting: headings, emphasis, inline code, fenced code blocks, list and quote markers,
// links, and `@` mentions, plus the paths and addresses that are not prose. A line needs only the
// state the line before it left (inside a fence or not), so a change is rescanned from its line
// until the states agree again. The words it reports for spell checking leave out code, paths,
// addresses, mentions and identifiers.
namespace MarkdownScanner {

enum class SpanKind {
    heading,
    emphasis,
    strong,
    inlineCode,
    codeBlock,
    fence,
    listMarker,
    quoteMarker,
    linkText,
    address,
    mention,
    path,
};

struct Span {
    qsizetype start = 0;
    qsizetype length = 0;
    SpanKind kind = SpanKind::heading;

    friend bool operator==(const Span &, const Span &) = default;
};

struct Word {
    qsizetype start = 0;
    qsizetype length = 0;

    friend bool operator==(const Word &, const Word &) = default;
};

// Outside code, or inside a fenced block opened by a run of fenceLength fence characters.
struct LineState {
    char16_t fence = 0;
    int fenceLength = 0;

    bool isInFence() const { return fence != 0; }
    // As a text block's user state (which starts at -1, "not yet scanned"): never negative.
    int toInt() const;
    static LineState fromInt(int value);

    friend bool operator==(const LineState &, const LineState &) = default;
};

struct LineResult {
    QList<Span> spans;
    QList<Word> words;
    LineState next;
};

LineResult scan(QStringView line, LineState state, bool collectWords = true);

} // namespace MarkdownScanner
