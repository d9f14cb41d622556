#include "composer/ComposerPanel.h"

#include "composer/ComposerLayout.h"
#include "composer/ComposerTextView.h"
#include "core/PromptAttachment.h"

#include <QApplication>
#include <QCloseEvent>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QHBoxLayout>
#include <QKeySequence>
#include <QLabel>
#include <QMimeData>
#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QShortcut>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWindow>

using namespace ComposerLayout;

namespace {
// How far in from the panel's left and right edges the pointer resizes it.
constexpr int kResizeEdgeWidth = 6;

// Lets the pointer move the window from a widget's empty space, and resize it from the window's
// left and right edges, both through the window system. Either starts only once the pointer
// travels while pressed: asking the window manager on the press itself leaves some window
// managers in a move after a quick click, swallowing the next input. A click without travel is
// reported instead. The height is the composer's (it follows the text), so only the sides resize.
class WindowDragHandle final : public QObject {
public:
    WindowDragHandle(QWidget *area, std::function<void()> onClick)
        : QObject(area)
        , m_area(area)
        , m_onClick(std::move(onClick))
    {
        // Moves without a button show the resize cursor over the edges.
        area->setMouseTracking(true);
        area->installEventFilter(this);
    }

protected:
    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (watched != m_area)
            return false;
        switch (event->type()) {
        case QEvent::MouseButtonPress: {
            const auto *press = static_cast<QMouseEvent *>(event);
            if (press->button() == Qt::LeftButton) {
                m_pressedAt = press->globalPosition().toPoint();
                m_pressedEdges = edgesAt(press->position().toPoint());
                m_isPressed = true;
            }
            break;
        }
        case QEvent::MouseMove: {
            const auto *move = static_cast<QMouseEvent *>(event);
            if (!m_isPressed) {
                if (move->buttons() == Qt::NoButton)
                    showResizeCursor(edgesAt(move->position().toPoint()) != Qt::Edges());
                break;
            }
            if ((move->globalPosition().toPoint() - m_pressedAt).manhattanLength() >=
                QApplication::startDragDistance()) {
                m_isPressed = false;
                if (QWindow *window = m_area->window()->windowHandle()) {
                    if (m_pressedEdges)
                        window->startSystemResize(m_pressedEdges);
                    else
                        window->startSystemMove();
                }
            }
            break;
        }
        case QEvent::MouseButtonRelease:
            if (m_isPressed && static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton) {
                m_isPressed = false;
                if (m_onClick && !m_pressedEdges)
                    m_onClick();
            }
            break;
        case QEvent::Leave:
            showResizeCursor(false);
            break;
        default:
            break;
        }
        return false;
    }

private:
    Qt::Edges edgesAt(const QPoint &position) const
    {
        const int x = m_area->mapTo(m_area->window(), position).x();
        if (x < kResizeEdgeWidth)
            return Qt::LeftEdge;
        if (x >= m_area->window()->width() - kResizeEdgeWidth)
            return Qt::RightEdge;
        return {};
    }

    void showResizeCursor(bool shown)
    {
        if (shown == m_showsResizeCursor)
            return;
        m_showsResizeCursor = shown;
        if (shown)
            m_area->setCursor(Qt::SizeHorCursor);
        else
            m_area->unsetCursor();
    }

    QWidget *m_area;
    std::function<void()> m_onClick;
    QPoint m_pressedAt;
    Qt::Edges m_pressedEdges;
    bool m_isPressed = false;
    bool m_showsResizeCursor = false;
};
} // namespace

ComposerPanel::ComposerPanel(bool scratchMode, QWidget *parent)
    : QWidget(parent, Qt::Tool | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint)
{
    setObjectName(QStringLiteral("ComposerPanel"));
    setWindowTitle(scratchMode ? QStringLiteral("Tarvel Quick Task") : QStringLiteral("Tarvel Composer"));
    setAttribute(Qt::WA_TranslucentBackground);
    setMinimumWidth(minPanelWidth);
    setAcceptDrops(true);
    setMaximumWidth(maxPanelWidth);

    auto *column = new QVBoxLayout(this);
    column->setContentsMargins(horizontalPadding, topPadding, horizontalPadding, bottomPadding);
    column->setSpacing(0);

    m_header = new QLabel(this);
    m_header->setObjectName(QStringLiteral("ComposerHeader"));
    QFont headerFont = m_header->font();
    headerFont.setBold(true);
    m_header->setFont(headerFont);
    m_header->setMinimumHeight(22);
    m_header->setVisible(scratchMode);
    column->addWidget(m_header);
    if (scratchMode)
        column->addSpacing(headerSpacing);

    m_textView = new ComposerTextView(this);
    m_textView->setObjectName(QStringLiteral("ComposerText"));
    // A click on the background returns the keyboard to the prompt, when it can be typed in.
    new WindowDragHandle(this, [this] {
        if (!m_textView->isReadOnly())
            m_textView->setFocus(Qt::MouseFocusReason);
    });
    column->addWidget(m_textView);

    m_section = new QWidget(this);
    m_section->setFixedHeight(interSectionSpacing);
    column->addWidget(m_section);

    auto *footer = new QWidget(this);
    footer->setFixedHeight(footerHeight);
    m_footerLayout = new QHBoxLayout(footer);
    m_footerLayout->setContentsMargins(0, 0, 0, 0);
    m_footerLayout->setSpacing(6);

    m_closeButton = new QToolButton(footer);
    m_closeButton->setObjectName(QStringLiteral("ComposerClose"));
    m_closeButton->setText(QStringLiteral("\u2715"));
    m_closeButton->setToolTip(QStringLiteral("Close"));
    m_closeButton->setAutoRaise(true);
    m_closeButton->setFixedSize(footerHeight, footerHeight);
    m_closeButton->setFocusPolicy(Qt::NoFocus);
    m_footerLayout->addWidget(m_closeButton);
    // Empty footer space is background too: its mouse events reach the panel's handle.
    m_footerLayout->addStretch(1);

    m_cancelButton = new QPushButton(QStringLiteral("Cancel"), footer);
    m_cancelButton->setObjectName(QStringLiteral("ComposerCancel"));
    m_submitButton = new QPushButton(QStringLiteral("Submit"), footer);
    m_submitButton->setObjectName(QStringLiteral("ComposerSubmit"));
    m_submitButton->setToolTip(QStringLiteral("Submit"));
    for (QPushButton *button : {m_cancelButton, m_submitButton}) {
        button->setFixedHeight(footerHeight);
        button->setFocusPolicy(Qt::NoFocus);
        button->setAutoDefault(false);
        m_footerLayout->addWidget(button);
    }
    column->addWidget(footer);

    connect(m_submitButton, &QPushButton::clicked, this, [this] {
        if (onSubmit)
            onSubmit();
    });
    connect(m_cancelButton, &QPushButton::clicked, this, [this] {
        if (onCancel)
            onCancel();
    });
    connect(m_closeButton, &QToolButton::clicked, this, [this] { close(); });

    // Command-Return on a Mac is Ctrl+Return here; Qt maps the two for us.
    for (const QKeySequence &keys :
         {QKeySequence(Qt::CTRL | Qt::Key_Return), QKeySequence(Qt::CTRL | Qt::Key_Enter)}) {
        auto *submit = new QShortcut(keys, this);
        connect(submit, &QShortcut::activated, this, [this] {
            if (onSubmit)
                onSubmit();
        });
    }
    auto *escape = new QShortcut(QKeySequence(Qt::Key_Escape), this);
    connect(escape, &QShortcut::activated, this, [this] {
        if (onEscape)
            onEscape();
    });
}

void ComposerPanel::setSectionWidget(QWidget *widget)
{
    auto *layout = new QVBoxLayout(m_section);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(widget);
}

void ComposerPanel::setTopBarWidget(QWidget *widget)
{
    auto *column = static_cast<QVBoxLayout *>(layout());
    column->insertWidget(column->indexOf(m_textView), widget);
}

void ComposerPanel::setCompositingAvailable(bool available)
{
    m_compositing = available;
    updateMask();
    update();
}

void ComposerPanel::setDropTargetEmphasis(bool emphasised)
{
    if (m_dropEmphasis == emphasised)
        return;
    m_dropEmphasis = emphasised;
    update();
}

void ComposerPanel::setRecordingTint(bool tinted)
{
    if (m_recordingTint == tinted)
        return;
    m_recordingTint = tinted;
    update();
}

void ComposerPanel::applyTextArea(int visibleTextHeight, int sectionHeight, bool showsVerticalScroller)
{
    m_textView->setVerticalScrollBarPolicy(showsVerticalScroller ? Qt::ScrollBarAlwaysOn
                                                                 : Qt::ScrollBarAlwaysOff);
    m_textView->setFixedHeight(visibleTextHeight);
    m_section->setFixedHeight(sectionHeight);
}

void ComposerPanel::setHeightFixedToContent(bool fixed)
{
    m_heightFixedToContent = fixed;
    if (fixed)
        setFixedHeight(height());
    else
        setMaximumHeight(QWIDGETSIZE_MAX);
}

void ComposerPanel::applyHeightLimits(int minimumHeight, int height)
{
    if (m_heightFixedToContent)
        setFixedHeight(height);
    else
        setMinimumHeight(minimumHeight);
}

void ComposerPanel::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QRectF box = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    QColor background = palette().color(QPalette::Window);
    if (m_compositing)
        background.setAlpha(246);
    if (m_recordingTint)
        background = QColor::fromRgbF(background.redF(), background.greenF() * 0.92,
                                      background.blueF() * 0.92, background.alphaF());
    QColor border = palette().color(isActiveWindow() ? QPalette::Dark : QPalette::Mid);
    qreal borderWidth = 1;
    if (m_recordingTint) {
        border = QColor(0xff, 0x3b, 0x30, 200);
        borderWidth = 2;
    }
    if (m_dropEmphasis) {
        border = palette().color(QPalette::Highlight);
        borderWidth = 2;
    }
    painter.setPen(QPen(border, borderWidth));
    painter.setBrush(background);
    const qreal radius = m_compositing ? panelCornerRadius : 0;
    painter.drawRoundedRect(box, radius, radius);
}

void ComposerPanel::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    updateMask();
    if (onResized)
        onResized();
}

void ComposerPanel::moveEvent(QMoveEvent *event)
{
    QWidget::moveEvent(event);
    if (onMoved)
        onMoved();
}

void ComposerPanel::closeEvent(QCloseEvent *event)
{
    if (isProgrammaticClose) {
        isProgrammaticClose = false;
        event->accept();
        return;
    }
    // A user close is a cancel; the controller closes the window itself afterwards.
    event->ignore();
    if (onUserClose)
        onUserClose();
}

void ComposerPanel::changeEvent(QEvent *event)
{
    QWidget::changeEvent(event);
    if (event->type() == QEvent::ActivationChange) {
        update();
        if (onActiveChanged)
            onActiveChanged(isActiveWindow());
    }
}

void ComposerPanel::updateMask()
{
    if (m_compositing) {
        clearMask();
        return;
    }
    QPainterPath path;
    path.addRoundedRect(QRectF(rect()), panelCornerRadius, panelCornerRadius);
    setMask(QRegion(path.toFillPolygon().toPolygon()));
}

void ComposerPanel::dragEnterEvent(QDragEnterEvent *event)
{
    if (!onFilesDropped || PromptAttachment::localFileUrls(event->mimeData()).isEmpty())
        return;
    event->acceptProposedAction();
    if (onDropHighlight)
        onDropHighlight(true);
}

void ComposerPanel::dragLeaveEvent(QDragLeaveEvent *)
{
    if (onDropHighlight)
        onDropHighlight(false);
}

void ComposerPanel::dropEvent(QDropEvent *event)
{
    const QList<QUrl> files = PromptAttachment::localFileUrls(event->mimeData());
    if (onDropHighlight)
        onDropHighlight(false);
    if (files.isEmpty() || !onFilesDropped)
        return;
    event->acceptProposedAction();
    onFilesDropped(files);
}
