#include "editing/HistorySearchPopup.h"

#include <QDir>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QLocale>
#include <QVBoxLayout>

namespace {

constexpr int kVisibleRows = 8;
constexpr qsizetype kShownCharacters = 200;

// The prompt's first line, and where and when it was written.
QString rowText(const PromptHistoryEntry &entry, const std::optional<QString> &cwd)
{
    QString first = entry.text.trimmed().section(u'\n', 0, 0).left(kShownCharacters);
    if (entry.text.trimmed().contains(u'\n'))
        first += QStringLiteral(" \u2026");
    QString where;
    if (entry.cwd && entry.cwd != cwd)
        where = QDir(*entry.cwd).dirName() + QStringLiteral(", ");
    const QString when = QLocale().toString(entry.date.toLocalTime(), QLocale::ShortFormat);
    return first + QStringLiteral("   \u2014 ") + where + when;
}

} // namespace

HistorySearchPopup::HistorySearchPopup(const PromptHistory &history, QWidget *anchor)
    : QFrame(anchor->window(), Qt::Popup)
    , m_history(history)
    , m_anchor(anchor)
{
    setObjectName(QStringLiteral("PromptHistorySearch"));
    setFrameShape(QFrame::StyledPanel);
    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(6, 6, 6, 6);
    column->setSpacing(4);
    m_field = new QLineEdit(this);
    m_field->setObjectName(QStringLiteral("PromptHistorySearchField"));
    m_field->setPlaceholderText(QStringLiteral("Search earlier prompts"));
    m_field->setClearButtonEnabled(true);
    m_field->installEventFilter(this);
    m_list = new QListWidget(this);
    m_list->setObjectName(QStringLiteral("PromptHistorySearchList"));
    m_list->setFocusPolicy(Qt::NoFocus);
    m_list->setUniformItemSizes(true);
    m_list->setTextElideMode(Qt::ElideMiddle);
    m_empty = new QLabel(this);
    m_empty->setForegroundRole(QPalette::PlaceholderText);
    column->addWidget(m_field);
    column->addWidget(m_list);
    column->addWidget(m_empty);
    connect(m_field, &QLineEdit::textChanged, this, &HistorySearchPopup::search);
    connect(m_list, &QListWidget::itemClicked, this, [this] { choose(); });
}

void HistorySearchPopup::open(const std::optional<QString> &cwd)
{
    m_cwd = cwd;
    m_field->clear();
    search();
    const QWidget *window = m_anchor->window();
    const int rowHeight = std::max(m_list->sizeHintForRow(0), fontMetrics().height() + 4);
    m_list->setFixedHeight(kVisibleRows * rowHeight + 2 * m_list->frameWidth());
    resize(window->width(), sizeHint().height());
    move(window->mapToGlobal(QPoint(0, m_anchor->mapTo(window, QPoint(0, 0)).y())));
    show();
    m_field->setFocus(Qt::PopupFocusReason);
}

void HistorySearchPopup::search()
{
    m_shown = m_history.search(m_field->text(), m_cwd, shownMatches);
    m_list->clear();
    for (const PromptHistoryEntry &entry : std::as_const(m_shown)) {
        auto *row = new QListWidgetItem(rowText(entry, m_cwd), m_list);
        row->setToolTip(entry.text.left(2000));
    }
    if (!m_shown.isEmpty())
        m_list->setCurrentRow(0);
    m_empty->setText(m_shown.isEmpty()
                         ? (m_field->text().isEmpty() ? QStringLiteral("No prompts submitted yet.")
                                                      : QStringLiteral("No prompt matches."))
                         : QString());
    m_empty->setVisible(m_shown.isEmpty());
}

void HistorySearchPopup::choose()
{
    const int row = m_list->currentRow();
    if (row < 0 || row >= m_shown.size())
        return;
    const QString prompt = m_shown.at(row).text;
    close();
    Q_EMIT chosen(prompt);
}

bool HistorySearchPopup::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_field && event->type() == QEvent::KeyPress) {
        const auto *key = static_cast<QKeyEvent *>(event);
        const int current = m_list->currentRow();
        switch (key->key()) {
        case Qt::Key_Up:
            m_list->setCurrentRow(std::max(current - 1, 0));
            return true;
        case Qt::Key_Down:
            m_list->setCurrentRow(std::min(current + 1, int(m_list->count()) - 1));
            return true;
        case Qt::Key_PageUp:
            m_list->setCurrentRow(std::max(current - kVisibleRows, 0));
            return true;
        case Qt::Key_PageDown:
            m_list->setCurrentRow(std::min(current + kVisibleRows, int(m_list->count()) - 1));
            return true;
        case Qt::Key_Return:
        case Qt::Key_Enter:
            choose();
            return true;
        default:
            break;
        }
    }
    return QFrame::eventFilter(watched, event);
}

void HistorySearchPopup::keyPressEvent(QKeyEvent *event)
{
    if (event->key() == Qt::Key_Escape) {
        close();
        return;
    }
    QFrame::keyPressEvent(event);
}
