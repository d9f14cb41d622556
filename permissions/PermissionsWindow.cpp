#include "permissions/PermissionsWindow.h"

#include "permissions/PermissionCenter.h"
#include "permissions/PermissionSummary.h"

#include <QFrame>
#include <QGuiApplication>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QScrollArea>
#include <QShortcut>
#include <QVBoxLayout>

namespace {

QLabel *makeLabel(const QString &text, qreal pointSize, bool bold, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(pointSize);
    font.setBold(bold);
    label->setFont(font);
    label->setWordWrap(true);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

void clear(QVBoxLayout *layout)
{
    while (QLayoutItem *item = layout->takeAt(0)) {
        delete item->widget();
        delete item;
    }
}

} // namespace

PermissionsWindow::PermissionsWindow(PermissionCenter &center, QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_center(center)
{
    setObjectName(QStringLiteral("PermissionsWindow"));
    setWindowTitle(QStringLiteral("Permissions"));
    auto *close = new QShortcut(QKeySequence::Close, this);
    connect(close, &QShortcut::activated, this, &QWidget::close);
    resize(620, 580);

    auto *layout = new QVBoxLayout(this);
    m_summaryTitle = makeLabel(QString(), 13, true, this);
    m_summaryTitle->setObjectName(QStringLiteral("PermissionSummaryTitle"));
    layout->addWidget(m_summaryTitle);
    m_summaryDetail = makeLabel(QString(), 9.5, false, this);
    m_summaryDetail->setObjectName(QStringLiteral("PermissionSummaryDetail"));
    layout->addWidget(m_summaryDetail);

    // The rows scroll, so that long details keep their full height in a small window.
    auto *scrollArea = new QScrollArea(this);
    scrollArea->setWidgetResizable(true);
    scrollArea->setFrameShape(QFrame::NoFrame);
    scrollArea->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    auto *content = new QWidget(scrollArea);
    auto *sections = new QVBoxLayout(content);
    sections->setContentsMargins(0, 8, 0, 0);
    sections->addWidget(makeLabel(QStringLiteral("Permissions"), 11, true, content));
    m_permissionRows = new QVBoxLayout;
    sections->addLayout(m_permissionRows);
    sections->addSpacing(8);
    sections->addWidget(makeLabel(QStringLiteral("On-Demand Access"), 11, true, content));
    m_onDemandRows = new QVBoxLayout;
    sections->addLayout(m_onDemandRows);
    sections->addStretch(1);
    scrollArea->setWidget(content);
    layout->addWidget(scrollArea, 1);

    connect(&m_center, &PermissionCenter::settingsUnavailable, this, &PermissionsWindow::showWhereToLook);
    if (auto *application = qobject_cast<QGuiApplication *>(QCoreApplication::instance())) {
        connect(application, &QGuiApplication::applicationStateChanged, this,
                [this](Qt::ApplicationState state) {
                    if (state == Qt::ApplicationActive && isVisible())
                        refresh();
                });
    }
}

void PermissionsWindow::refresh()
{
    const quint64 generation = ++m_generation;
    m_center.fetchDescriptors().then(this,
                                     [this, generation](const QList<PermissionDescriptor> &descriptors) {
                                         if (generation == m_generation)
                                             showDescriptors(descriptors);
                                     });
}

void PermissionsWindow::showEvent(QShowEvent *event)
{
    QWidget::showEvent(event);
    refresh();
}

void PermissionsWindow::showDescriptors(const QList<PermissionDescriptor> &descriptors)
{
    const PermissionSummary summary = PermissionSummary::fromDescriptors(descriptors);
    m_summaryTitle->setText(summary.title(m_center.wording()));
    m_summaryDetail->setText(summary.detail(m_center.wording()));
    clear(m_permissionRows);
    clear(m_onDemandRows);
    for (const PermissionDescriptor &descriptor : descriptors) {
        QVBoxLayout *rows = descriptor.section == PermissionDescriptor::Section::permissions
                                ? m_permissionRows
                                : m_onDemandRows;
        rows->addWidget(makeRow(descriptor));
    }
}

QWidget *PermissionsWindow::makeRow(const PermissionDescriptor &descriptor)
{
    auto *row = new QFrame;
    row->setObjectName(QStringLiteral("PermissionRow"));
    row->setStyleSheet(QStringLiteral("#PermissionRow { border: 1px solid palette(mid); border-radius: 10px;"
                                      " background: palette(base); }"));
    auto *outer = new QHBoxLayout(row);
    outer->setContentsMargins(12, 10, 12, 10);
    auto *column = new QVBoxLayout;
    column->setSpacing(3);
    auto *title = makeLabel(descriptor.title, 10, true, row);
    title->setObjectName(QStringLiteral("PermissionTitle"));
    column->addWidget(title);
    auto *detail = makeLabel(descriptor.detail, 9, false, row);
    detail->setObjectName(QStringLiteral("PermissionDetail"));
    column->addWidget(detail);
    outer->addLayout(column, 1);

    auto *status = makeLabel(statusText(descriptor.status), 9, false, row);
    status->setObjectName(QStringLiteral("PermissionStatus"));
    status->setWordWrap(false);
    status->setForegroundRole(descriptor.status == PermissionDescriptor::Status::needsAttention
                                  ? QPalette::Highlight
                                  : QPalette::PlaceholderText);
    outer->addWidget(status, 0, Qt::AlignVCenter);
    if (descriptor.actionTitle) {
        auto *action = new QPushButton(*descriptor.actionTitle, row);
        action->setObjectName(QStringLiteral("PermissionAction"));
        connect(action, &QPushButton::clicked, this, [this, descriptor] { perform(descriptor); });
        outer->addWidget(action, 0, Qt::AlignVCenter);
    }
    return row;
}

QString PermissionsWindow::statusText(PermissionDescriptor::Status status) const
{
    switch (status) {
    case PermissionDescriptor::Status::granted:
        return QStringLiteral("Allowed");
    case PermissionDescriptor::Status::needsAttention:
        return QStringLiteral("Needs Attention");
    case PermissionDescriptor::Status::notRequested:
        return QStringLiteral("Not Requested");
    case PermissionDescriptor::Status::restricted:
        return QStringLiteral("Restricted");
    case PermissionDescriptor::Status::onDemand:
        return QStringLiteral("On Demand");
    case PermissionDescriptor::Status::managedBySystem:
        return QStringLiteral("Managed by %1").arg(m_center.wording().system);
    }
    return {};
}

void PermissionsWindow::perform(const PermissionDescriptor &descriptor)
{
    const QList<QPushButton *> buttons = findChildren<QPushButton *>(QStringLiteral("PermissionAction"));
    for (QPushButton *button : buttons)
        button->setEnabled(false);
    m_center.performAction(descriptor).then(this, [this] { refresh(); });
}

void PermissionsWindow::showWhereToLook(const QString &sentence)
{
    if (!m_message) {
        m_message =
            new QMessageBox(QMessageBox::Information, windowTitle(), QString(), QMessageBox::Ok, this);
        m_message->setObjectName(QStringLiteral("PermissionsMessage"));
    }
    m_message->setText(sentence);
    m_message->open();
}
