#pragma once

#include "editing/MarkdownScanner.h"

#include <QObject>
#include <QPointer>
#include <QTextCharFormat>

#include <array>
#include <optional>

class QTextBlock;
class QTextDocument;
class QTextEdit;
class SpellCheckService;

// Markdown highlighting and misspelled-word underlines for a composer's text, kept up as it is
// typed. The line being typed (and the lines after it whose state it changed) is done at once;
// a large change such as a pasted log is done a slice of a few milliseconds at a time, the
// lines on screen first, so typing never waits for it. Colours come from the view's palette
// when they are applied, so a dark palette works.
class PromptHighlighter final : public QObject {
    Q_OBJECT

public:
    PromptHighlighter(QTextEdit *view, SpellCheckService *spelling, QObject *parent = nullptr);

    // The longest a slice of work (scanning, spelling and the layout of what changed) may take
    // before the event loop runs again.
    static constexpr int sliceMilliseconds = 12;

    // Whether lines still wait for their highlighting.
    bool isPending() const;
    // Highlights whatever waits, now.
    void finishNow();

    struct Misspelling {
        int position = 0;
        int length = 0;
        QString word;
    };
    // The misspelled word at a document position, if there is one.
    std::optional<Misspelling> misspellingAt(int position) const;

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void contentsChanged(int from, int removed, int added);
    void markAllDirty();
    void scheduleWork();
    void work();
    // Highlights one line from the state the line before left; marks the next line when the
    // state it leaves changed. A provisional pass (lines on screen ahead of their turn) keeps the
    // line marked.
    void highlight(QTextBlock block, bool provisional);
    void highlightVisibleLines();
    void flushLayout();
    void rebuildFormats();
    QTextCharFormat formatFor(quint16 kinds);

    QPointer<QTextEdit> m_view;
    QTextDocument *m_document = nullptr;
    SpellCheckService *m_spelling = nullptr;
    std::array<QTextCharFormat, 13> m_kindFormats;
    QHash<quint16, QTextCharFormat> m_combinedFormats;
    // The first line that may be marked; -1 when none is.
    int m_firstDirty = -1;
    bool m_workScheduled = false;
    bool m_visibleFirst = false;
    bool m_applying = false;
    // The span of the document whose lines got new formats since the layout last heard of it.
    int m_changedFrom = -1;
    int m_changedTo = -1;
    int m_changedLines = 0;
    int m_linesPerLayout = 256;
};
