#include "errorlog/ErrorsWindow.h"

#include "errorlog/ErrorLogManager.h"

#include <QDialogButtonBox>
#include <QFrame>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

namespace {
QLabel *makeLabel(const QString &text, qreal pointSize, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont font = label->font();
    font.setPointSizeF(pointSize);
    label->setFont(font);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

QFrame *makeRow(const ErrorLogEntry &entry, const std::function<void(const QUuid &)> &onRemove,
                QWidget *parent)
{
    auto *row = new QFrame(parent);
    row->setObjectName(QStringLiteral("ErrorRow"));
    row->setStyleSheet(QStringLiteral("#ErrorRow { border: 1px solid palette(mid); border-radius: 10px;"
                                      " background: palette(base); }"));
    auto *outer = new QHBoxLayout(row);
    outer->setContentsMargins(12, 12, 12, 12);
    auto *column = new QVBoxLayout;
    column->setSpacing(4);
    auto *title = makeLabel(entry.title, 10, row);
    title->setObjectName(QStringLiteral("ErrorTitle"));
    column->addWidget(title);
    const QString when = QLocale().toString(entry.recordedAt.toLocalTime(), QLocale::ShortFormat);
    auto *meta = makeLabel(when + QStringLiteral(" \u00b7 ") + entry.source, 8.5, row);
    meta->setForegroundRole(QPalette::PlaceholderText);
    column->addWidget(meta);
    auto *detail = makeLabel(entry.detail, 9.5, row);
    detail->setObjectName(QStringLiteral("ErrorDetail"));
    detail->setWordWrap(true);
    column->addWidget(detail);
    outer->addLayout(column, 1);

    auto *remove = new QToolButton(row);
    remove->setObjectName(QStringLiteral("ErrorRemove"));
    remove->setText(QStringLiteral("\u2715"));
    remove->setToolTip(QStringLiteral("Remove"));
    remove->setAutoRaise(true);
    const QUuid id = entry.id;
    QObject::connect(remove, &QToolButton::clicked, row, [onRemove, id] { onRemove(id); });
    outer->addWidget(remove, 0, Qt::AlignTop);
    return row;
}
} // namespace

ErrorsWindow::ErrorsWindow(ErrorLogManager &errorLog, const QString &applicationDisplayName, QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_errorLog(errorLog)
{
    setObjectName(QStringLiteral("ErrorsWindow"));
    setWindowTitle(applicationDisplayName + QStringLiteral(" Errors"));
    resize(560, 380);

    auto *layout = new QVBoxLayout(this);
    auto *title = makeLabel(QStringLiteral("Errors"), 13, this);
    QFont titleFont = title->font();
    titleFont.setBold(true);
    title->setFont(titleFont);
    layout->addWidget(title);
    auto *description =
        makeLabel(QStringLiteral("Problems stay here until you remove them, so you can make sense "
                                 "of issues long after they first happened."),
                  9.5, this);
    description->setWordWrap(true);
    layout->addWidget(description);

    auto *scroll = new QScrollArea(this);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    auto *content = new QWidget(scroll);
    m_entries = new QVBoxLayout(content);
    m_entries->setSpacing(8);
    m_entries->setContentsMargins(0, 0, 0, 0);
    scroll->setWidget(content);
    layout->addWidget(scroll, 1);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QWidget::close);
    layout->addWidget(buttons);

    connect(&m_errorLog, &ErrorLogManager::errorLogDidChange, this, &ErrorsWindow::rebuildRows);
    rebuildRows();
}

void ErrorsWindow::rebuildRows()
{
    while (QLayoutItem *item = m_entries->takeAt(0)) {
        if (QWidget *widget = item->widget())
            widget->deleteLater();
        delete item;
    }
    const QList<ErrorLogEntry> &entries = m_errorLog.entries();
    QWidget *content = m_entries->parentWidget();
    if (entries.isEmpty()) {
        auto *empty = makeLabel(QStringLiteral("No stored errors."), 9, content);
        empty->setObjectName(QStringLiteral("NoStoredErrors"));
        empty->setForegroundRole(QPalette::PlaceholderText);
        empty->setWordWrap(true);
        m_entries->addWidget(empty);
    } else {
        // Dismissal rebuilds through the change signal; defer it so the button that
        // was clicked is not deleted under its own click handler.
        const auto remove = [this](const QUuid &id) {
            QMetaObject::invokeMethod(
                this, [this, id] { m_errorLog.dismiss(id); }, Qt::QueuedConnection);
        };
        for (const ErrorLogEntry &entry : entries)
            m_entries->addWidget(makeRow(entry, remove, content));
    }
    m_entries->addStretch(1);
}
