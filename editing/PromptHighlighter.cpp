#include "editing/PromptHighlighter.h"

#include "editing/SpellCheckService.h"

#include <QAbstractTextDocumentLayout>
#include <QElapsedTimer>
#include <QEvent>
#include <QFontDatabase>
#include <QScrollBar>
#include <QTextBlock>
#include <QTextDocument>
#include <QTextEdit>
#include <QTextLayout>
#include <QTimer>

using MarkdownScanner::SpanKind;

namespace {

// A line's user state is the state it leaves for the next line; this bit marks it for another
// pass. Lines never scanned have -1.
constexpr int kDirtyBit = 1 << 29;
constexpr int kMisspelledBit = 12;
// A line this long is data (a log, minified code), not prose: it is not spell checked.
constexpr qsizetype kLongestCheckedLine = 10000;
// What a change may cost at once before the rest goes to the slices.
constexpr int kLinesAtOnce = 32;
constexpr int kVisibleLinesAhead = 200;
constexpr int kFewestLinesPerLayout = 32;
constexpr int kMostLinesPerLayout = 4096;

bool isDirty(const QTextBlock &block)
{
    const int state = block.userState();
    return state < 0 || (state & kDirtyBit) != 0;
}

int endState(const QTextBlock &block)
{
    const int state = block.userState();
    return state < 0 ? -1 : state & ~kDirtyBit;
}

void markDirty(QTextBlock block)
{
    const int state = block.userState();
    if (state >= 0)
        block.setUserState(state | kDirtyBit);
}

QColor mix(const QColor &from, const QColor &to, double amount)
{
    return QColor::fromRgbF(float(from.redF() + (to.redF() - from.redF()) * amount),
                            float(from.greenF() + (to.greenF() - from.greenF()) * amount),
                            float(from.blueF() + (to.blueF() - from.blueF()) * amount));
}

} // namespace

PromptHighlighter::PromptHighlighter(QTextEdit *view, SpellCheckService *spelling, QObject *parent)
    : QObject(parent)
    , m_view(view)
    , m_document(view->document())
    , m_spelling(spelling)
{
    rebuildFormats();
    connect(m_document, &QTextDocument::contentsChange, this, &PromptHighlighter::contentsChanged);
    if (m_spelling)
        connect(m_spelling, &SpellCheckService::checkerChanged, this, &PromptHighlighter::markAllDirty);
    view->installEventFilter(this);
    view->window()->installEventFilter(this);
    markAllDirty();
}

bool PromptHighlighter::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::PaletteChange && m_view &&
        (watched == m_view || watched == m_view->window())) {
        rebuildFormats();
        markAllDirty();
    }
    return QObject::eventFilter(watched, event);
}

void PromptHighlighter::rebuildFormats()
{
    // The text is drawn over its window's colour (the view itself is transparent).
    const QPalette palette = m_view->window()->palette();
    const QColor window = palette.color(QPalette::Window);
    const QColor text = palette.color(QPalette::Text);
    const QColor link = palette.color(QPalette::Link);
    const QColor shade = mix(window, text, 0.08);
    const QStringList fixed = QFontDatabase::systemFont(QFontDatabase::FixedFont).families();
    const auto format = [this](SpanKind kind) -> QTextCharFormat & {
        return m_kindFormats[size_t(kind)];
    };
    for (QTextCharFormat &each : m_kindFormats)
        each = QTextCharFormat();

    format(SpanKind::heading).setFontWeight(QFont::Bold);
    format(SpanKind::heading).setForeground(mix(text, link, 0.5));
    format(SpanKind::emphasis).setFontItalic(true);
    format(SpanKind::strong).setFontWeight(QFont::Bold);
    for (const SpanKind kind : {SpanKind::inlineCode, SpanKind::codeBlock, SpanKind::fence}) {
        format(kind).setBackground(shade);
        format(kind).setFontFamilies(fixed);
    }
    format(SpanKind::fence).setForeground(palette.color(QPalette::PlaceholderText));
    for (const SpanKind kind : {SpanKind::listMarker, SpanKind::quoteMarker}) {
        format(kind).setForeground(link);
        format(kind).setFontWeight(QFont::Bold);
    }
    for (const SpanKind kind : {SpanKind::linkText, SpanKind::address}) {
        format(kind).setForeground(link);
        format(kind).setFontUnderline(true);
    }
    format(SpanKind::mention).setForeground(link);
    format(SpanKind::mention).setBackground(mix(window, link, 0.14));
    // A red that reads on the window colour, lighter on a dark one.
    QTextCharFormat &misspelled = m_kindFormats[kMisspelledBit];
    misspelled.setUnderlineStyle(QTextCharFormat::SpellCheckUnderline);
    misspelled.setUnderlineColor(QColor::fromHsl(0, 200, window.lightness() < 128 ? 150 : 100));
    m_combinedFormats.clear();
}

QTextCharFormat PromptHighlighter::formatFor(quint16 kinds)
{
    if (const auto known = m_combinedFormats.constFind(kinds); known != m_combinedFormats.cend())
        return *known;
    QTextCharFormat combined;
    for (size_t kind = 0; kind < m_kindFormats.size(); ++kind) {
        if (kinds & (1u << kind))
            combined.merge(m_kindFormats[kind]);
    }
    m_combinedFormats.insert(kinds, combined);
    return combined;
}

void PromptHighlighter::contentsChanged(int from, int, int added)
{
    if (m_applying)
        return;
    QTextBlock first = m_document->findBlock(from);
    QTextBlock last = m_document->findBlock(from + added);
    if (!last.isValid())
        last = m_document->lastBlock();
    if (!first.isValid())
        return;
    const bool wasPending = isPending();
    // Lines changed in place keep their old state: mark each.
    for (QTextBlock block = first; block.isValid(); block = block.next()) {
        markDirty(block);
        if (block == last)
            break;
    }
    m_firstDirty = m_firstDirty < 0 ? first.blockNumber() : std::min(m_firstDirty, first.blockNumber());
    if (last.blockNumber() - first.blockNumber() >= kLinesAtOnce) {
        m_visibleFirst = true;
        scheduleWork();
        return;
    }
    // Typing: the line now, and the lines after it while their state changes, within a budget.
    int done = 0;
    QTextBlock block = first;
    for (; block.isValid() && isDirty(block) && done < kLinesAtOnce; block = block.next(), ++done)
        highlight(block, false);
    flushLayout();
    if (!wasPending)
        m_firstDirty = block.isValid() && isDirty(block) ? block.blockNumber() : -1;
    scheduleWork();
}

void PromptHighlighter::markAllDirty()
{
    for (QTextBlock block = m_document->begin(); block.isValid(); block = block.next())
        markDirty(block);
    m_firstDirty = 0;
    m_visibleFirst = true;
    scheduleWork();
}

void PromptHighlighter::scheduleWork()
{
    if (m_workScheduled || m_firstDirty < 0)
        return;
    m_workScheduled = true;
    QTimer::singleShot(0, this, &PromptHighlighter::work);
}

bool PromptHighlighter::isPending() const
{
    return m_firstDirty >= 0;
}

void PromptHighlighter::work()
{
    m_workScheduled = false;
    if (m_firstDirty < 0 || !m_view)
        return;
    QElapsedTimer timer;
    timer.start();
    if (std::exchange(m_visibleFirst, false)) {
        highlightVisibleLines();
        flushLayout();
    }
    // The slice ends when its scanning time is up, or when it changed as many lines as the layout
    // takes in the rest of a slice.
    QTextBlock block = m_document->findBlockByNumber(m_firstDirty);
    while (block.isValid()) {
        if (isDirty(block))
            highlight(block, false);
        block = block.next();
        if (block.isValid() &&
            (timer.elapsed() >= sliceMilliseconds / 2 || m_changedLines >= m_linesPerLayout)) {
            flushLayout();
            m_firstDirty = block.blockNumber();
            scheduleWork();
            return;
        }
    }
    flushLayout();
    m_firstDirty = -1;
}

void PromptHighlighter::finishNow()
{
    for (QTextBlock block = m_document->begin(); block.isValid(); block = block.next()) {
        if (isDirty(block))
            highlight(block, false);
    }
    flushLayout();
    m_firstDirty = -1;
}

// The layout learns of the new formats once for the lines done together: telling it line by line
// would cost a pass over the rest of the document each time.
void PromptHighlighter::flushLayout()
{
    if (m_changedFrom < 0)
        return;
    const int from = std::exchange(m_changedFrom, -1);
    const int to = std::exchange(m_changedTo, -1);
    const int lines = std::exchange(m_changedLines, 0);
    QElapsedTimer timer;
    timer.start();
    m_applying = true;
    m_document->markContentsDirty(from, to - from);
    m_applying = false;
    // How many lines the layout takes in half a slice here, learnt as it goes. Its cost grows with
    // the lines after them too, so it is followed rather than worked out.
    if (lines >= m_linesPerLayout / 2) {
        const double spent = double(timer.nsecsElapsed()) / 1e6;
        if (spent > sliceMilliseconds / 2.0)
            m_linesPerLayout = std::max(kFewestLinesPerLayout, m_linesPerLayout * 3 / 4);
        else if (spent < sliceMilliseconds / 4.0)
            m_linesPerLayout = std::min(kMostLinesPerLayout, m_linesPerLayout * 5 / 4);
    }
}

void PromptHighlighter::highlightVisibleLines()
{
    const QRect area = m_view->viewport()->rect();
    QTextBlock block = m_view->cursorForPosition(area.topLeft()).block();
    const QTextBlock last = m_view->cursorForPosition(area.bottomRight()).block();
    for (int count = 0; block.isValid() && count < kVisibleLinesAhead; block = block.next(), ++count) {
        if (isDirty(block))
            highlight(block, true);
        if (block == last)
            break;
    }
}

void PromptHighlighter::highlight(QTextBlock block, bool provisional)
{
    const QTextBlock previous = block.previous();
    const int incoming = previous.isValid() ? std::max(endState(previous), 0) : 0;
    const QString text = block.text();
    const bool checkSpelling = m_spelling && m_spelling->isActive() && text.size() <= kLongestCheckedLine;
    const MarkdownScanner::LineResult result =
        MarkdownScanner::scan(text, MarkdownScanner::LineState::fromInt(incoming), checkSpelling);

    QList<quint16> kinds(text.size(), 0);
    for (const MarkdownScanner::Span &span : result.spans) {
        const quint16 bit = quint16(1u << unsigned(span.kind));
        for (qsizetype index = span.start; index < span.start + span.length && index < text.size(); ++index)
            kinds[index] |= bit;
    }
    if (checkSpelling) {
        for (const MarkdownScanner::Word &word : result.words) {
            if (m_spelling->isCorrect(text.mid(word.start, word.length)))
                continue;
            for (qsizetype index = word.start; index < word.start + word.length; ++index)
                kinds[index] |= quint16(1u << kMisspelledBit);
        }
    }
    QList<QTextLayout::FormatRange> ranges;
    for (qsizetype start = 0; start < text.size();) {
        qsizetype end = start + 1;
        while (end < text.size() && kinds[end] == kinds[start])
            ++end;
        if (kinds[start] != 0)
            ranges.append({int(start), int(end - start), formatFor(kinds[start])});
        start = end;
    }
    QTextLayout *layout = block.layout();
    if (layout && layout->formats() != ranges) {
        layout->setFormats(ranges);
        m_changedFrom = m_changedFrom < 0 ? block.position() : std::min(m_changedFrom, block.position());
        m_changedTo = std::max(m_changedTo, block.position() + block.length());
        ++m_changedLines;
    }
    if (provisional)
        return;
    const int before = endState(block);
    const int after = result.next.toInt();
    block.setUserState(after);
    if (before != after && block.next().isValid())
        markDirty(block.next());
}

std::optional<PromptHighlighter::Misspelling> PromptHighlighter::misspellingAt(int position) const
{
    if (!m_spelling || !m_spelling->isActive())
        return std::nullopt;
    const QTextBlock block = m_document->findBlock(position);
    if (!block.isValid() || block.length() > kLongestCheckedLine)
        return std::nullopt;
    const QTextBlock previous = block.previous();
    const int incoming = previous.isValid() ? std::max(endState(previous), 0) : 0;
    const QString text = block.text();
    const int offset = position - block.position();
    for (const MarkdownScanner::Word &word :
         MarkdownScanner::scan(text, MarkdownScanner::LineState::fromInt(incoming)).words) {
        if (offset < word.start || offset > word.start + word.length)
            continue;
        const QString spelled = text.mid(word.start, word.length);
        if (m_spelling->isCorrect(spelled))
            return std::nullopt;
        return Misspelling{block.position() + int(word.start), int(word.length), spelled};
    }
    return std::nullopt;
}
