#include "editing/CompletionPopup.h"

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QScreen>
#include <QStyledItemDelegate>
#include <QTextLayout>

namespace {

constexpr int kVisibleRows = 8;
constexpr int kWidth = 460;
constexpr int kPositionsRole = Qt::UserRole + 1;

// Draws a row's text with the characters the query matched in bold.
class MatchDelegate final : public QStyledItemDelegate {
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    void paint(QPainter *painter, const QStyleOptionViewItem &option, const QModelIndex &index) const override
    {
        QStyleOptionViewItem plain = option;
        initStyleOption(&plain, index);
        const QString text = plain.text;
        plain.text.clear();
        const QWidget *widget = option.widget;
        QStyle *style = widget ? widget->style() : QApplication::style();
        style->drawControl(QStyle::CE_ItemViewItem, &plain, painter, widget);

        const QRect textRect = style->subElementRect(QStyle::SE_ItemViewItemText, &plain, widget);
        QTextCharFormat bold;
        bold.setFontWeight(QFont::Bold);
        QList<QTextLayout::FormatRange> ranges;
        for (const QVariant &position : index.data(kPositionsRole).toList())
            ranges.append({position.toInt(), 1, bold});
        const QString shown = option.fontMetrics.elidedText(text, Qt::ElideLeft, textRect.width());
        // An elided row loses its bold characters rather than bolding the wrong ones.
        if (shown != text)
            ranges.clear();
        QTextLayout layout(shown, option.font);
        layout.setFormats(ranges);
        layout.beginLayout();
        QTextLine line = layout.createLine();
        line.setLineWidth(textRect.width());
        layout.endLayout();
        painter->save();
        painter->setPen(option.palette.color(option.state & QStyle::State_Selected ? QPalette::HighlightedText
                                                                                   : QPalette::Text));
        const qreal top = textRect.top() + (textRect.height() - line.height()) / 2;
        layout.draw(painter, QPointF(textRect.left(), top));
        painter->restore();
    }
};

} // namespace

CompletionPopup::CompletionPopup(QWidget *anchor)
    : QListWidget(anchor->window())
{
    setObjectName(QStringLiteral("MentionCompletionList"));
    setWindowFlags(Qt::ToolTip | Qt::FramelessWindowHint);
    // Never shown, but lets tests and window managers tell it apart.
    setWindowTitle(QStringLiteral("Tarvel Completions"));
    setAttribute(Qt::WA_ShowWithoutActivating);
    setFocusPolicy(Qt::NoFocus);
    setUniformItemSizes(true);
    setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setItemDelegate(new MatchDelegate(this));
    setFont(anchor->font());
}

int CompletionPopup::visibleRows() const
{
    return kVisibleRows;
}

void CompletionPopup::present(const QList<Item> &items, const QRect &cursorRect, const QString &emptyNote)
{
    clear();
    const QIcon fileIcon = style()->standardIcon(QStyle::SP_FileIcon);
    const QIcon folderIcon = style()->standardIcon(QStyle::SP_DirIcon);
    for (const Item &item : items) {
        auto *row = new QListWidgetItem(item.isFolder ? folderIcon : fileIcon, item.text, this);
        QVariantList positions;
        for (const qsizetype position : item.positions)
            positions.append(int(position));
        row->setData(kPositionsRole, positions);
    }
    if (items.isEmpty()) {
        auto *row = new QListWidgetItem(emptyNote, this);
        row->setFlags(Qt::NoItemFlags);
    } else {
        setCurrentRow(0);
    }
    const int rowHeight = std::max(sizeHintForRow(0), fontMetrics().height() + 4);
    const int shownRows = std::clamp(int(count()), 1, kVisibleRows);
    resize(kWidth, shownRows * rowHeight + 2 * frameWidth());
    setVerticalScrollBarPolicy(count() > kVisibleRows ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);

    QPoint where = cursorRect.bottomLeft() + QPoint(0, 2);
    if (const QScreen *screen = QGuiApplication::screenAt(cursorRect.center())) {
        const QRect area = screen->availableGeometry();
        if (where.y() + height() > area.bottom())
            where.setY(cursorRect.top() - height() - 2);
        where.setX(std::clamp(where.x(), area.left(), std::max(area.left(), area.right() - width())));
    }
    move(where);
    show();
    raise();
}

void CompletionPopup::moveCurrent(int rows)
{
    if (count() == 0 || !(item(0)->flags() & Qt::ItemIsEnabled))
        return;
    setCurrentRow(std::clamp(currentRow() + rows, 0, int(count()) - 1));
}

void CompletionPopup::mousePressEvent(QMouseEvent *event)
{
    // On the press: the text may lose its window's focus before a click completes.
    const QListWidgetItem *pressed = itemAt(event->position().toPoint());
    if (pressed && (pressed->flags() & Qt::ItemIsEnabled))
        Q_EMIT chosen(row(pressed));
    event->accept();
}
