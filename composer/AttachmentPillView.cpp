#include "composer/AttachmentPillView.h"

#include "composer/AttachmentStripView.h"

#include <QAbstractButton>
#include <QEvent>
#include <QFileInfo>
#include <QLabel>
#include <QPainter>
#include <QStyle>

#include <algorithm>
#include <cmath>

namespace {

constexpr int leadingPadding = 7;
constexpr int iconSize = 14;
constexpr int iconGap = 4;
constexpr int titleGap = 3;
constexpr int removeButtonSize = 16;
constexpr int trailingPadding = 3;
constexpr int fixedWidth =
    leadingPadding + iconSize + iconGap + titleGap + removeButtonSize + trailingPadding;

// A round "×" that only shows its background while hovered or pressed.
class RemoveButton final : public QAbstractButton {
public:
    explicit RemoveButton(QWidget *parent)
        : QAbstractButton(parent)
    {
        setFixedSize(removeButtonSize, removeButtonSize);
        setCursor(Qt::ArrowCursor);
        setFocusPolicy(Qt::NoFocus);
        setAttribute(Qt::WA_Hover);
        setText(QStringLiteral("\u00D7"));
        setToolTip(QStringLiteral("Remove attachment"));
        setAccessibleName(QStringLiteral("Remove attachment"));
    }

protected:
    void paintEvent(QPaintEvent *) override
    {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QPalette &colors = palette();
        const QRectF circle = QRectF(rect()).adjusted(1, 1, -1, -1);
        if (isDown() || underMouse()) {
            QColor fill = colors.color(QPalette::Text);
            fill.setAlphaF(isDown() ? 0.28f : 0.16f);
            painter.setPen(Qt::NoPen);
            painter.setBrush(fill);
            painter.drawEllipse(circle);
        }
        // Two strokes rather than the glyph, so the cross is centred in every font.
        QColor stroke = colors.color(QPalette::Text);
        stroke.setAlphaF(underMouse() ? 0.9f : 0.6f);
        painter.setPen(QPen(stroke, 1.4, Qt::SolidLine, Qt::RoundCap));
        const QPointF centre = circle.center();
        constexpr qreal arm = 3.2;
        painter.drawLine(centre + QPointF(-arm, -arm), centre + QPointF(arm, arm));
        painter.drawLine(centre + QPointF(-arm, arm), centre + QPointF(arm, -arm));
    }
};

QString titleFor(const QString &path)
{
    const QString name = QFileInfo(path).fileName();
    return name.isEmpty() ? path : name;
}

} // namespace

AttachmentPillView::AttachmentPillView(const PromptAttachment &attachment, QWidget *parent)
    : QWidget(parent)
    , m_attachment(attachment)
    , m_title(titleFor(attachment.path))
    , m_iconLabel(new QLabel(this))
    , m_titleLabel(new QLabel(this))
    , m_removeButton(new RemoveButton(this))
{
    setToolTip(attachment.path);
    setAccessibleName(m_title);
    setFixedHeight(AttachmentStripView::pillHeight);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);

    const auto icon = attachment.isDirectory() ? QStyle::SP_DirIcon : QStyle::SP_FileIcon;
    m_iconLabel->setPixmap(style()->standardIcon(icon).pixmap(iconSize, iconSize));
    m_iconLabel->setFixedSize(iconSize, iconSize);
    m_titleLabel->setTextFormat(Qt::PlainText);
    m_titleLabel->setText(m_title);

    connect(m_removeButton, &QAbstractButton::clicked, this,
            [this] { Q_EMIT removeRequested(m_attachment.id); });
    layoutContent();
}

QString AttachmentPillView::displayedTitle() const
{
    return m_titleLabel->text();
}

int AttachmentPillView::preferredWidth(int maximum) const
{
    // Rounded up with a pixel to spare, so a title that fits is never elided by rounding.
    const qreal advance = QFontMetricsF(m_titleLabel->font()).horizontalAdvance(m_title);
    return std::min(maximum, fixedWidth + int(std::ceil(advance)) + 1);
}

void AttachmentPillView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QPalette &colors = palette();
    const QRectF capsule = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    const qreal radius = capsule.height() / 2;

    QColor fill = colors.color(QPalette::Button);
    QColor border = colors.color(QPalette::Mid);
    border.setAlphaF(0.7f);
    painter.setPen(QPen(border, 1));
    painter.setBrush(fill);
    painter.drawRoundedRect(capsule, radius, radius);
}

void AttachmentPillView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    layoutContent();
}

void AttachmentPillView::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        layoutContent();
}

void AttachmentPillView::layoutContent()
{
    const int middle = height() / 2;
    m_iconLabel->move(leadingPadding, middle - iconSize / 2);

    const int titleX = leadingPadding + iconSize + iconGap;
    const int titleWidth = std::max(0, width() - fixedWidth);
    const QFontMetrics metrics = m_titleLabel->fontMetrics();
    m_titleLabel->setText(metrics.elidedText(m_title, Qt::ElideMiddle, titleWidth));
    m_titleLabel->setGeometry(titleX, 0, titleWidth, height());

    m_removeButton->move(width() - trailingPadding - removeButtonSize, middle - removeButtonSize / 2);
}
