#include "composer/AttachmentStripView.h"

#include "backends/BackendProfiles.h"
#include "composer/AttachmentPillView.h"

#include <QDragEnterEvent>
#include <QDragLeaveEvent>
#include <QDragMoveEvent>
#include <QDropEvent>
#include <QMimeData>
#include <QPainter>

#include <algorithm>

namespace {

constexpr qreal placeholderCornerRadius = 6;

} // namespace

AttachmentStripView::AttachmentStripView(QWidget *parent)
    : QWidget(parent)
{
    setAcceptDrops(true);
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

void AttachmentStripView::setAttachments(const QList<PromptAttachment> &attachments)
{
    if (attachments == m_attachments)
        return;
    m_attachments = attachments;

    // Pills are kept for attachments that stay, so a removal does not rebuild the row.
    // Dropped ones go later: this may run inside one of their own button clicks.
    QList<AttachmentPillView *> pills;
    pills.reserve(attachments.size());
    QList<AttachmentPillView *> unused = m_pillViews;
    for (const PromptAttachment &attachment : attachments) {
        const auto reusable = std::find_if(unused.begin(), unused.end(), [&](AttachmentPillView *pill) {
            return pill->attachment() == attachment;
        });
        if (reusable != unused.end()) {
            pills.append(*reusable);
            unused.erase(reusable);
            continue;
        }
        auto *pill = new AttachmentPillView(attachment, this);
        connect(pill, &AttachmentPillView::removeRequested, this,
                [this](const QUuid &id) { Q_EMIT removeAttachmentRequested(id); });
        pill->show();
        pills.append(pill);
    }
    for (AttachmentPillView *pill : unused) {
        pill->hide();
        pill->deleteLater();
    }
    m_pillViews = pills;

    layoutPills();
    updateGeometry();
    update();
}

void AttachmentStripView::setBackend(QuickTaskCLIBackend backend)
{
    if (backend == m_backend)
        return;
    m_backend = backend;
    update();
}

void AttachmentStripView::setShowsDropPlaceholder(bool shows)
{
    if (shows == m_showsDropPlaceholder)
        return;
    m_showsDropPlaceholder = shows;
    updateGeometry();
    update();
}

QString AttachmentStripView::placeholderText(QuickTaskCLIBackend backend)
{
    if (!BackendProfiles::of(backend).acceptsFolders())
        return QStringLiteral("Drop files here");
    return QStringLiteral("Drop files or folders here");
}

QString AttachmentStripView::highlightedPlaceholderText(QuickTaskCLIBackend backend)
{
    if (!BackendProfiles::of(backend).acceptsFolders())
        return QStringLiteral("Drop to attach files");
    return QStringLiteral("Drop to attach files or folders");
}

int AttachmentStripView::measuredHeight(int width) const
{
    if (m_attachments.isEmpty())
        return m_showsDropPlaceholder ? placeholderHeight : 0;
    const QList<QRect> frames = wrappedPillFrames(preferredPillWidths(), width);
    return frames.isEmpty() ? 0 : frames.last().bottom() + 1;
}

QList<QRect> AttachmentStripView::wrappedPillFrames(const QList<int> &preferredWidths, int width)
{
    const int available = std::max(1, width);
    QList<QRect> frames;
    frames.reserve(preferredWidths.size());
    int x = 0;
    int y = 0;
    for (const int preferred : preferredWidths) {
        const int pillWidth = std::clamp(preferred, 1, available);
        if (x > 0 && x + pillWidth > available) {
            x = 0;
            y += pillHeight + verticalSpacing;
        }
        frames.append(QRect(x, y, pillWidth, pillHeight));
        x += pillWidth + horizontalSpacing;
    }
    return frames;
}

QSize AttachmentStripView::sizeHint() const
{
    const int width = std::max(this->width(), maxPillWidth);
    return {width, measuredHeight(width)};
}

QSize AttachmentStripView::minimumSizeHint() const
{
    return {0, 0};
}

QList<int> AttachmentStripView::preferredPillWidths() const
{
    QList<int> widths;
    widths.reserve(m_pillViews.size());
    for (const AttachmentPillView *pill : m_pillViews)
        widths.append(pill->preferredWidth(maxPillWidth));
    return widths;
}

void AttachmentStripView::layoutPills()
{
    const QList<QRect> frames = wrappedPillFrames(preferredPillWidths(), width());
    for (qsizetype i = 0; i < m_pillViews.size(); ++i)
        m_pillViews[i]->setGeometry(frames[i]);
}

void AttachmentStripView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette &colors = palette();
    const QColor accent = colors.color(QPalette::Highlight);

    if (!showsPlaceholderBox()) {
        // Pills cover the strip; a hovering drag only tints the area behind them.
        if (m_isDropTargetHighlighted && !m_attachments.isEmpty()) {
            QColor tint = accent;
            tint.setAlphaF(0.12f);
            painter.setPen(Qt::NoPen);
            painter.setBrush(tint);
            painter.drawRoundedRect(QRectF(rect()), placeholderCornerRadius, placeholderCornerRadius);
        }
        return;
    }

    const QRectF box = QRectF(0, 0, width(), placeholderHeight).adjusted(0.5, 0.5, -0.5, -0.5);
    QColor border = m_isDropTargetHighlighted ? accent : colors.color(QPalette::Mid);
    QColor textColor = m_isDropTargetHighlighted ? accent : colors.color(QPalette::PlaceholderText);
    QPen pen(border, m_isDropTargetHighlighted ? 1.5 : 1);
    pen.setStyle(Qt::DashLine);
    pen.setDashPattern({4, 3});
    painter.setPen(pen);
    if (m_isDropTargetHighlighted) {
        QColor fill = accent;
        fill.setAlphaF(0.12f);
        painter.setBrush(fill);
    } else {
        painter.setBrush(Qt::NoBrush);
    }
    painter.drawRoundedRect(box, placeholderCornerRadius, placeholderCornerRadius);

    QFont font = this->font();
    if (font.pointSizeF() > 0)
        font.setPointSizeF(font.pointSizeF() - 1);
    painter.setFont(font);
    painter.setPen(textColor);
    const QString text = m_isDropTargetHighlighted ? highlightedPlaceholderText() : placeholderText();
    const QString shown = QFontMetrics(font).elidedText(text, Qt::ElideRight, int(box.width()) - 12);
    painter.drawText(box, Qt::AlignCenter, shown);
}

void AttachmentStripView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    layoutPills();
}

void AttachmentStripView::showEvent(QShowEvent *event)
{
    // Pills are polished on first show and may measure differently from before.
    QWidget::showEvent(event);
    layoutPills();
    updateGeometry();
}

void AttachmentStripView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange) {
        layoutPills();
        updateGeometry();
    }
}

void AttachmentStripView::dragEnterEvent(QDragEnterEvent *event)
{
    if (PromptAttachment::localFileUrls(event->mimeData()).isEmpty()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    setDropTargetHighlighted(true);
}

void AttachmentStripView::dragMoveEvent(QDragMoveEvent *event)
{
    if (PromptAttachment::localFileUrls(event->mimeData()).isEmpty()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    setDropTargetHighlighted(true);
}

void AttachmentStripView::dragLeaveEvent(QDragLeaveEvent *event)
{
    event->accept();
    setDropTargetHighlighted(false);
}

void AttachmentStripView::dropEvent(QDropEvent *event)
{
    const QList<QUrl> urls = PromptAttachment::localFileUrls(event->mimeData());
    setDropTargetHighlighted(false);
    if (urls.isEmpty()) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
    Q_EMIT fileUrlsDropped(urls);
}

void AttachmentStripView::setDropTargetHighlighted(bool highlighted)
{
    if (highlighted == m_isDropTargetHighlighted)
        return;
    m_isDropTargetHighlighted = highlighted;
    update();
    Q_EMIT dropTargetHighlighted(highlighted);
}
