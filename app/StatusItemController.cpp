#include "app/StatusItemController.h"

#include "app/QuickTaskMenuItemView.h"
#include "app/StatusItemIcon.h"

#include <QCursor>
#include <QMenu>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QTimer>
#include <QWidgetAction>

namespace {
constexpr int kBlinkIntervalMs = 600;
constexpr int kRefreshIntervalMs = 1000;
} // namespace

StatusItemController::StatusItemController(bool trayExportsMenus, QObject *parent)
    : QObject(parent)
    , m_menu(std::make_unique<QMenu>())
    , m_trayIcon(new QSystemTrayIcon(this))
    , m_trayExportsMenus(trayExportsMenus)
{
    m_menu->setObjectName(QStringLiteral("StatusMenu"));
    m_trayIcon->setToolTip(QStringLiteral("Tarvel"));
    refreshIcon();
    if (!m_trayExportsMenus)
        m_trayIcon->setContextMenu(m_menu.get());
    connect(m_trayIcon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        // Any click opens the menu, as a menu-bar item would.
        if (reason == QSystemTrayIcon::Trigger || (m_trayExportsMenus && reason == QSystemTrayIcon::Context))
            m_menu->popup(QCursor::pos());
    });
    connect(m_menu.get(), &QMenu::aboutToShow, this, &StatusItemController::menuWillOpen);
    connect(m_menu.get(), &QMenu::aboutToHide, this, &StatusItemController::menuDidClose);
}

StatusItemController::~StatusItemController()
{
    m_trayIcon->setContextMenu(nullptr);
}

void StatusItemController::show()
{
    m_trayIcon->show();
}

void StatusItemController::hide()
{
    m_trayIcon->hide();
}

void StatusItemController::setTasksRunning(bool running)
{
    if (running) {
        if (!m_blinkTimer) {
            m_blinkTimer = new QTimer(this);
            m_blinkTimer->setInterval(kBlinkIntervalMs);
            connect(m_blinkTimer, &QTimer::timeout, this, [this] {
                m_showsPromptLine = !m_showsPromptLine;
                refreshIcon();
            });
            m_blinkTimer->start();
        }
        return;
    }
    delete m_blinkTimer;
    m_blinkTimer = nullptr;
    if (!m_showsPromptLine) {
        m_showsPromptLine = true;
        refreshIcon();
    }
}

bool StatusItemController::isBlinking() const
{
    return m_blinkTimer != nullptr;
}

bool StatusItemController::hasRefreshTimer() const
{
    return m_refreshTimer != nullptr;
}

void StatusItemController::setVoicePromptRecording(bool recording)
{
    if (m_showsVoicePromptRecording == recording)
        return;
    m_showsVoicePromptRecording = recording;
    m_trayIcon->setToolTip(recording ? QStringLiteral("Tarvel \u2014 recording a dictated prompt")
                                     : QStringLiteral("Tarvel"));
    refreshIcon();
}

void StatusItemController::refreshIcon()
{
    m_trayIcon->setIcon(StatusItemIcon::makeIcon(m_showsPromptLine, m_showsVoicePromptRecording));
}

void StatusItemController::menuWillOpen()
{
    m_isMenuOpen = true;
    rebuildMenu();
    if (!m_refreshTimer) {
        m_refreshTimer = new QTimer(this);
        m_refreshTimer->setInterval(kRefreshIntervalMs);
        connect(m_refreshTimer, &QTimer::timeout, this, &StatusItemController::refreshSessionRows);
        m_refreshTimer->start();
    }
}

void StatusItemController::menuDidClose()
{
    m_isMenuOpen = false;
    delete m_refreshTimer;
    m_refreshTimer = nullptr;
}

void StatusItemController::rebuildMenu()
{
    // An open QMenu that runs out of items closes itself, so clear() would shut the menu under
    // a row's Delete. Build the new items first and drop the old ones after.
    const QList<QAction *> previous = m_menu->actions();
    const QRect before = m_menu->isVisible() ? m_menu->geometry() : QRect();
    m_sessionRows.clear(); // their rows are about to go
    const StatusMenuState state = stateProvider ? stateProvider() : StatusMenuState();
    for (const StatusMenuEntry &entry : StatusMenuModel::build(state)) {
        QAction *action = nullptr;
        switch (entry.kind) {
        case StatusMenuEntry::Kind::separator:
            action = m_menu->addSeparator();
            break;
        case StatusMenuEntry::Kind::sessionRow: {
            if (!sessionRow)
                continue;
            auto *widgetAction = new QWidgetAction(m_menu.get());
            widgetAction->setDefaultWidget(makeSessionRow(entry.sessionId));
            widgetAction->setData(entry.sessionId);
            m_menu->addAction(widgetAction);
            action = widgetAction;
            break;
        }
        case StatusMenuEntry::Kind::disabledText:
        case StatusMenuEntry::Kind::action: {
            action = m_menu->addAction(entry.title);
            action->setEnabled(entry.enabled);
            const StatusMenuEntry::Action what = entry.action;
            if (what != StatusMenuEntry::Action::none)
                connect(action, &QAction::triggered, this, [this, what] { Q_EMIT actionTriggered(what); });
            break;
        }
        }
        action->setObjectName(entry.identifier.isEmpty() ? entry.title : entry.identifier);
    }
    for (QAction *action : previous) {
        m_menu->removeAction(action);
        if (action->parent() == m_menu.get())
            delete action;
    }
    // A menu that was pushed against the screen's right edge (a tray in the top right) stays
    // there when its width changes, instead of leaving a gap under the icon.
    if (before.isValid()) {
        const QScreen *screen = m_menu->screen();
        if (screen && before.right() >= screen->availableGeometry().right())
            m_menu->move(before.right() - m_menu->width() + 1, before.top());
    }
}

void StatusItemController::refreshIfOpen()
{
    if (m_isMenuOpen)
        rebuildMenu();
}

QWidget *StatusItemController::makeSessionRow(const QUuid &sessionId)
{
    const std::optional<SessionMenuRow> row = sessionRow(sessionId);
    QList<QuickTaskInlineAction> actions;
    for (const SessionMenuRow::Action action : row ? row->actions : QList<SessionMenuRow::Action>()) {
        actions.append({SessionMenuRow::actionTitle(action), SessionMenuRow::dismissesMenu(action),
                        [this, sessionId, action] {
                            if (onSessionAction)
                                onSessionAction(sessionId, action);
                        }});
    }
    auto *view = new QuickTaskMenuItemView(
        row ? row->title : QString(), row ? row->detail : QString(), actions,
        [this, sessionId] {
            if (onSessionOpened)
                onSessionOpened(sessionId);
        },
        m_menu.get());
    view->dismissMenu = [this] {
        m_menu->hide();
    };
    m_sessionRows.insert(sessionId, view);
    return view;
}

void StatusItemController::refreshSessionRows()
{
    for (auto it = m_sessionRows.cbegin(); it != m_sessionRows.cend(); ++it) {
        if (!it.value())
            continue;
        if (const std::optional<SessionMenuRow> row = sessionRow(it.key()))
            it.value()->update(row->title, row->detail);
    }
}
