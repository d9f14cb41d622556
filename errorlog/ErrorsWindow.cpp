#include "errorlog/ErrorsWindow.h"

#include "core/UserDefaults.h"
#include "errorlog/ErrorLogManager.h"

#include <QDialogButtonBox>
#include <QFrame>
#include <QGuiApplication>
#include <QLabel>
#include <QLocale>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>

#include <algorithm>

namespace {

// Long enough that a drag of the window is over before its frame is stored.
constexpr int kFrameSaveDelayMs = 400;

QLabel *makeLabel(const QString &text, qreal pointSize, QWidget *parent)
{
    // Titles and details quote prompts and program output: what looks like markup is shown as written.
    auto *label = new QLabel(parent);
    label->setTextFormat(Qt::PlainText);
    label->setText(text);
    QFont font = label->font();
    font.setPointSizeF(pointSize);
    label->setFont(font);
    label->setTextInteractionFlags(Qt::TextSelectableByMouse);
    return label;
}

bool isFormatSeparator(QChar character)
{
    return !character.isLetter() && character != u'\'';
}

// Qt knows a locale's short and long dates only. Its medium one is the long one without the weekday and
// with abbreviated month names: "Nov 24, 2026" in en_US, "24. Nov. 2026" in de_DE.
QString mediumDateFormat(const QLocale &locale)
{
    const QString longFormat = locale.dateFormat(QLocale::LongFormat);
    const qsizetype length = longFormat.size();
    QString medium;
    qsizetype at = 0;
    while (at < length) {
        const QChar character = longFormat.at(at);
        qsizetype end = at + 1;
        if (character == u'\'') {
            // Quoted text, where '' stands for a quote, stays as it is.
            while (end < length &&
                   (longFormat.at(end) != u'\'' || (end + 1 < length && longFormat.at(end + 1) == u'\''))) {
                end += longFormat.at(end) == u'\'' ? 2 : 1;
            }
            medium += longFormat.mid(at, end + 1 - at);
            at = end + 1;
            continue;
        }
        while (end < length && longFormat.at(end) == character)
            ++end;
        const qsizetype count = end - at;
        if (character == u'd' && count >= 3) {
            // The weekday goes with the separator that follows it, or precedes it at the end.
            while (end < length && isFormatSeparator(longFormat.at(end)))
                ++end;
            if (end == length) {
                while (!medium.isEmpty() && isFormatSeparator(medium.back()))
                    medium.chop(1);
            }
        } else if (character == u'M' && count == 4) {
            medium += QStringLiteral("MMM");
        } else {
            medium += longFormat.mid(at, count);
        }
        at = end;
    }
    return medium;
}

// The medium date with the short time. Qt has no joining pattern either; the comma is the one of
// English and most European locales.
QString mediumDateShortTime(const QDateTime &when)
{
    const QLocale locale;
    const QDateTime local = when.toLocalTime();
    return locale.toString(local.date(), mediumDateFormat(locale)) + QStringLiteral(", ") +
           locale.toString(local.time(), QLocale::ShortFormat);
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
    auto *meta = makeLabel(mediumDateShortTime(entry.recordedAt) + QStringLiteral(" \u00b7 ") + entry.source,
                           8.5, row);
    meta->setObjectName(QStringLiteral("ErrorMeta"));
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

const QString ErrorsWindow::frameKey = QStringLiteral("TarvelErrors");

ErrorsWindow::ErrorsWindow(ErrorLogManager &errorLog, UserDefaults &defaults,
                           const QString &applicationDisplayName, QWidget *parent)
    : QWidget(parent, Qt::Window)
    , m_errorLog(errorLog)
    , m_defaults(defaults)
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

    m_frameSaveTimer = new QTimer(this);
    m_frameSaveTimer->setSingleShot(true);
    m_frameSaveTimer->setInterval(kFrameSaveDelayMs);
    connect(m_frameSaveTimer, &QTimer::timeout, this, &ErrorsWindow::saveFrame);
    restoreFrame();
}

ErrorsWindow::~ErrorsWindow()
{
    if (m_frameSaveTimer->isActive())
        saveFrame();
}

void ErrorsWindow::restoreFrame()
{
    const std::optional<QRectF> stored = m_defaults.rect(frameKey);
    if (!stored || stored->isEmpty())
        return;
    // A frame left on a screen that is gone comes back whole on the nearest one.
    QRect frame = stored->toRect();
    QScreen *screen = QGuiApplication::screenAt(frame.center());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen) {
        const QRect area = screen->availableGeometry();
        frame.setSize(frame.size().boundedTo(area.size()));
        frame.moveLeft(std::clamp(frame.left(), area.left(), area.right() + 1 - frame.width()));
        frame.moveTop(std::clamp(frame.top(), area.top(), area.bottom() + 1 - frame.height()));
    }
    setGeometry(frame);
}

void ErrorsWindow::saveFrame()
{
    m_frameSaveTimer->stop();
    m_defaults.setRect(frameKey, geometry());
}

void ErrorsWindow::moveEvent(QMoveEvent *event)
{
    QWidget::moveEvent(event);
    if (isVisible())
        m_frameSaveTimer->start();
}

void ErrorsWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (isVisible())
        m_frameSaveTimer->start();
}

void ErrorsWindow::hideEvent(QHideEvent *event)
{
    QWidget::hideEvent(event);
    saveFrame();
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
