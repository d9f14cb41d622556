#include "app/QuickTaskMenuItemView.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QToolButton>
#include <QVBoxLayout>

QuickTaskMenuItemView::QuickTaskMenuItemView(const QString &title, const QString &detail,
                                             const QList<QuickTaskInlineAction> &actions,
                                             std::function<void()> onPrimaryAction, QWidget *parent)
    : QWidget(parent)
    , m_actions(actions)
    , m_onPrimaryAction(std::move(onPrimaryAction))
{
    setObjectName(QStringLiteral("QuickTaskMenuItemView"));
    setMouseTracking(true);
    setMinimumWidth(320);
    auto *row = new QHBoxLayout(this);
    // The left margin lines the prompt up with the text of the plain items below it.
    row->setContentsMargins(26, 4, 8, 4);
    auto *texts = new QVBoxLayout;
    texts->setSpacing(1);
    m_titleField = new QLabel(this);
    m_titleField->setObjectName(QStringLiteral("SessionTitle"));
    m_titleField->setMaximumWidth(360);
    m_detailField = new QLabel(this);
    m_detailField->setObjectName(QStringLiteral("SessionDetail"));
    QFont small = m_detailField->font();
    small.setPointSizeF(small.pointSizeF() * 0.85);
    m_detailField->setFont(small);
    m_detailField->setForegroundRole(QPalette::PlaceholderText);
    texts->addWidget(m_titleField);
    texts->addWidget(m_detailField);
    row->addLayout(texts, 1);

    m_buttons = new QHBoxLayout;
    m_buttons->setSpacing(4);
    for (const QuickTaskInlineAction &action : std::as_const(m_actions)) {
        // Tool buttons size to their title and only show a frame under the pointer.
        auto *button = new QToolButton(this);
        button->setText(action.title);
        button->setObjectName(QStringLiteral("InlineAction_") + action.title);
        button->setFocusPolicy(Qt::NoFocus);
        button->setAutoRaise(true);
        button->setFont(small);
        const QString actionTitle = action.title;
        connect(button, &QToolButton::clicked, this, [this, actionTitle] { trigger(actionTitle); });
        m_buttons->addWidget(button);
    }
    row->addLayout(m_buttons);
    update(title, detail);
}

void QuickTaskMenuItemView::update(const QString &title, const QString &detail)
{
    const QString oneLine = QString(title).replace(u'\n', u' ');
    m_titleField->setText(m_titleField->fontMetrics().elidedText(oneLine, Qt::ElideRight, 360));
    m_titleField->setToolTip(title);
    m_detailField->setText(detail);
}

QString QuickTaskMenuItemView::title() const
{
    return m_titleField->toolTip();
}

QString QuickTaskMenuItemView::detail() const
{
    return m_detailField->text();
}

QStringList QuickTaskMenuItemView::actionTitles() const
{
    QStringList titles;
    for (const QuickTaskInlineAction &action : m_actions)
        titles.append(action.title);
    return titles;
}

bool QuickTaskMenuItemView::trigger(const QString &actionTitle)
{
    for (const QuickTaskInlineAction &action : std::as_const(m_actions)) {
        if (action.title != actionTitle)
            continue;
        // Close first: the handler may open a window that should not sit under the menu.
        if (action.dismissesMenu && dismissMenu)
            dismissMenu();
        if (action.handler)
            action.handler();
        return true;
    }
    return false;
}

void QuickTaskMenuItemView::enterEvent(QEnterEvent *)
{
    m_isHighlighted = true;
    QWidget::update();
}

void QuickTaskMenuItemView::leaveEvent(QEvent *)
{
    m_isHighlighted = false;
    QWidget::update();
}

void QuickTaskMenuItemView::mouseReleaseEvent(QMouseEvent *event)
{
    if (event->button() != Qt::LeftButton || !rect().contains(event->position().toPoint()))
        return;
    if (dismissMenu)
        dismissMenu();
    if (m_onPrimaryAction)
        m_onPrimaryAction();
}

void QuickTaskMenuItemView::paintEvent(QPaintEvent *)
{
    if (!m_isHighlighted)
        return;
    QPainter painter(this);
    QColor highlight = palette().color(QPalette::Highlight);
    highlight.setAlpha(40);
    painter.fillRect(rect(), highlight);
}
