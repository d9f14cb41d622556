#include "editing/FindBar.h"

#include <QEvent>
#include <QGridLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTextBlock>
#include <QTextEdit>
#include <QTimer>
#include <QToolButton>

namespace {

constexpr int kResearchDelayMs = 150;

QColor mix(const QColor &from, const QColor &to, double amount)
{
    return QColor::fromRgbF(float(from.redF() + (to.redF() - from.redF()) * amount),
                            float(from.greenF() + (to.greenF() - from.greenF()) * amount),
                            float(from.blueF() + (to.blueF() - from.blueF()) * amount));
}

QToolButton *toolButton(const QString &text, const QString &toolTip, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(toolTip);
    button->setAutoRaise(true);
    button->setFocusPolicy(Qt::NoFocus);
    return button;
}

} // namespace

FindBar::FindBar(QTextEdit *view, QWidget *parent)
    : QWidget(parent)
    , m_view(view)
{
    setObjectName(QStringLiteral("FindBar"));
    auto *grid = new QGridLayout(this);
    grid->setContentsMargins(0, 0, 0, 4);
    grid->setHorizontalSpacing(4);
    grid->setVerticalSpacing(4);

    m_find = new QLineEdit(this);
    m_find->setObjectName(QStringLiteral("FindField"));
    m_find->setPlaceholderText(QStringLiteral("Find"));
    m_replace = new QLineEdit(this);
    m_replace->setObjectName(QStringLiteral("ReplaceField"));
    m_replace->setPlaceholderText(QStringLiteral("Replace with"));
    for (QLineEdit *field : {m_find, m_replace})
        field->installEventFilter(this);
    QToolButton *previous =
        toolButton(QStringLiteral("\u2191"), QStringLiteral("Previous match (Shift+Return)"), this);
    QToolButton *next = toolButton(QStringLiteral("\u2193"), QStringLiteral("Next match (Return)"), this);
    m_caseSensitive = toolButton(QStringLiteral("Aa"), QStringLiteral("Match case"), this);
    m_wholeWords = toolButton(QStringLiteral("W"), QStringLiteral("Whole words only"), this);
    for (QToolButton *option : {m_caseSensitive, m_wholeWords})
        option->setCheckable(true);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("FindStatus"));
    m_status->setForegroundRole(QPalette::PlaceholderText);
    m_status->setMinimumWidth(m_status->fontMetrics().horizontalAdvance(QStringLiteral("9999 of 9999")));
    QToolButton *close = toolButton(QStringLiteral("\u2715"), QStringLiteral("Close (Esc)"), this);
    auto *replaceOne = new QPushButton(QStringLiteral("Replace"), this);
    auto *replaceEvery = new QPushButton(QStringLiteral("All"), this);
    replaceEvery->setToolTip(QStringLiteral("Replace all matches"));
    for (QPushButton *button : {replaceOne, replaceEvery}) {
        button->setFocusPolicy(Qt::NoFocus);
        button->setAutoDefault(false);
    }

    grid->addWidget(m_find, 0, 0);
    grid->addWidget(previous, 0, 1);
    grid->addWidget(next, 0, 2);
    grid->addWidget(m_caseSensitive, 0, 3);
    grid->addWidget(m_wholeWords, 0, 4);
    grid->addWidget(m_status, 0, 5);
    grid->addWidget(close, 0, 6);
    grid->addWidget(m_replace, 1, 0);
    auto *replaceButtons = new QHBoxLayout;
    replaceButtons->setSpacing(4);
    replaceButtons->addWidget(replaceOne);
    replaceButtons->addWidget(replaceEvery);
    replaceButtons->addStretch(1);
    grid->addLayout(replaceButtons, 1, 1, 1, 6);
    grid->setColumnStretch(0, 1);

    m_researchTimer = new QTimer(this);
    m_researchTimer->setSingleShot(true);
    m_researchTimer->setInterval(kResearchDelayMs);
    connect(m_researchTimer, &QTimer::timeout, this, &FindBar::search);
    connect(m_find, &QLineEdit::textChanged, this, [this] {
        search();
        findNext();
    });
    for (QToolButton *option : {m_caseSensitive, m_wholeWords})
        connect(option, &QToolButton::toggled, this, [this] {
            search();
            findNext();
        });
    connect(previous, &QToolButton::clicked, this, [this] { findNext(true); });
    connect(next, &QToolButton::clicked, this, [this] { findNext(); });
    connect(close, &QToolButton::clicked, this, &FindBar::closeBar);
    connect(replaceOne, &QPushButton::clicked, this, &FindBar::replaceCurrent);
    connect(replaceEvery, &QPushButton::clicked, this, &FindBar::replaceAll);
    // The text may change under the bar (typing, a paste, a replacement): find again shortly.
    connect(view->document(), &QTextDocument::contentsChanged, this, [this] {
        if (isVisible())
            m_researchTimer->start();
    });
    hide();
}

TextSearch::Options FindBar::options() const
{
    return {m_caseSensitive->isChecked(), m_wholeWords->isChecked()};
}

void FindBar::open()
{
    const QString selected = m_view->textCursor().selectedText();
    // A selection of more than a line is not what anyone searches for.
    if (!selected.isEmpty() && !selected.contains(QChar::ParagraphSeparator)) {
        const QSignalBlocker blocker(m_find);
        m_find->setText(selected);
    }
    const bool wasHidden = isHidden();
    show();
    if (wasHidden)
        Q_EMIT visibilityChanged();
    m_find->setFocus(Qt::ShortcutFocusReason);
    m_find->selectAll();
    search();
    if (!m_matches.isEmpty()) {
        const QTextCursor cursor = m_view->textCursor();
        select(TextSearch::nextMatch(m_matches, cursor.selectionStart(), false));
    }
}

void FindBar::closeBar()
{
    if (isHidden())
        return;
    m_researchTimer->stop();
    hide();
    m_matches.clear();
    m_current = -1;
    if (m_view) {
        m_view->setExtraSelections({});
        m_view->setFocus(Qt::OtherFocusReason);
    }
    Q_EMIT visibilityChanged();
}

void FindBar::search()
{
    m_researchTimer->stop();
    m_replacedNote.clear();
    const QString text = m_view->document()->toPlainText();
    m_matches = TextSearch::findAll(text, m_find->text(), options());
    m_current = -1;
    // The selection may still be one of the new matches.
    const QTextCursor cursor = m_view->textCursor();
    for (qsizetype index = 0; index < m_matches.size(); ++index) {
        if (cursor.selectionStart() == m_matches.at(index).start &&
            cursor.selectionEnd() == m_matches.at(index).start + m_matches.at(index).length)
            m_current = index;
    }
    shadeMatches();
    showStatus();
}

void FindBar::findNext(bool backward)
{
    if (m_matches.isEmpty())
        return;
    const QTextCursor cursor = m_view->textCursor();
    qsizetype from = backward ? cursor.selectionStart() : cursor.selectionStart() + 1;
    if (m_current < 0 && !backward)
        from = cursor.selectionStart();
    select(TextSearch::nextMatch(m_matches, from, backward));
}

void FindBar::select(qsizetype match)
{
    if (match < 0 || match >= m_matches.size())
        return;
    m_current = match;
    QTextCursor cursor = m_view->textCursor();
    cursor.setPosition(int(m_matches.at(match).start));
    cursor.setPosition(int(m_matches.at(match).start + m_matches.at(match).length), QTextCursor::KeepAnchor);
    m_view->setTextCursor(cursor);
    m_view->ensureCursorVisible();
    shadeMatches();
    showStatus();
}

void FindBar::replaceCurrent()
{
    QTextCursor cursor = m_view->textCursor();
    const bool onMatch =
        m_current >= 0 && m_current < m_matches.size() &&
        cursor.selectionStart() == m_matches.at(m_current).start &&
        cursor.selectionEnd() == m_matches.at(m_current).start + m_matches.at(m_current).length;
    if (!onMatch) {
        findNext();
        return;
    }
    cursor.insertText(m_replace->text());
    m_view->setTextCursor(cursor);
    search();
    findNext();
}

void FindBar::replaceAll()
{
    const QList<TextSearch::Match> every =
        TextSearch::findAll(m_view->document()->toPlainText(), m_find->text(), options());
    if (every.isEmpty())
        return;
    // One undo step, from the end so that earlier positions stay put.
    QTextCursor cursor(m_view->document());
    cursor.beginEditBlock();
    for (auto match = every.crbegin(); match != every.crend(); ++match) {
        cursor.setPosition(int(match->start));
        cursor.setPosition(int(match->start + match->length), QTextCursor::KeepAnchor);
        cursor.insertText(m_replace->text());
    }
    cursor.endEditBlock();
    search();
    m_replacedNote =
        every.size() == 1 ? QStringLiteral("Replaced 1") : QStringLiteral("Replaced %1").arg(every.size());
    showStatus();
}

void FindBar::shadeMatches()
{
    QList<QTextEdit::ExtraSelection> selections;
    const QPalette palette = m_view->window()->palette();
    QTextCharFormat shaded;
    shaded.setBackground(mix(palette.color(QPalette::Window), palette.color(QPalette::Highlight), 0.35));
    QTextCharFormat current;
    current.setBackground(palette.color(QPalette::Highlight));
    current.setForeground(palette.color(QPalette::HighlightedText));
    for (qsizetype index = 0; index < m_matches.size() && index < shadedMatches; ++index) {
        QTextCursor cursor(m_view->document());
        cursor.setPosition(int(m_matches.at(index).start));
        cursor.setPosition(int(m_matches.at(index).start + m_matches.at(index).length),
                           QTextCursor::KeepAnchor);
        selections.append({cursor, index == m_current ? current : shaded});
    }
    m_view->setExtraSelections(selections);
}

void FindBar::showStatus()
{
    if (!m_replacedNote.isEmpty())
        m_status->setText(m_replacedNote);
    else if (m_find->text().isEmpty())
        m_status->clear();
    else if (m_matches.isEmpty())
        m_status->setText(QStringLiteral("No matches"));
    else if (m_current < 0)
        m_status->setText(m_matches.size() == 1 ? QStringLiteral("1 match")
                                                : QStringLiteral("%1 matches").arg(m_matches.size()));
    else
        m_status->setText(QStringLiteral("%1 of %2").arg(m_current + 1).arg(m_matches.size()));
}

bool FindBar::event(QEvent *event)
{
    // Escape closes the bar, not the composer whose shortcut it would otherwise reach.
    if (event->type() == QEvent::ShortcutOverride &&
        static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
        event->accept();
        return true;
    }
    if (event->type() == QEvent::KeyPress && static_cast<QKeyEvent *>(event)->key() == Qt::Key_Escape) {
        closeBar();
        return true;
    }
    return QWidget::event(event);
}

bool FindBar::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        const bool plainReturn = (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) &&
                                 !(key->modifiers() & Qt::ControlModifier);
        if (plainReturn && watched == m_find) {
            findNext(key->modifiers() & Qt::ShiftModifier);
            return true;
        }
        if (plainReturn && watched == m_replace) {
            replaceCurrent();
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}
