#include "app/WindowActivationCoordinator.h"

#include "platform/WindowSystem.h"

#include <QApplication>
#include <QCoreApplication>
#include <QEvent>
#include <QGuiApplication>
#include <QTimer>
#include <QWindow>

WindowActivationCoordinator::WindowActivationCoordinator(WindowSystem &windows, QObject *parent)
    : QObject(parent)
    , m_windows(windows)
{
    // A window that became active completes its activation early.
    connect(qGuiApp, &QGuiApplication::focusWindowChanged, this, [this](QWindow *focused) {
        if (!focused)
            return;
        const QList<QUuid> ids = m_pending.keys();
        for (const QUuid &id : ids) {
            const QPointer<QWidget> &window = m_pending.value(id);
            if (window && window->windowHandle() == focused)
                complete(id);
        }
    });
}

void WindowActivationCoordinator::requestWindowActivation(QWidget *window, const QString &activationToken)
{
    // A window that goes away may leave nothing to keep the Dock icon for; watched once.
    window->removeEventFilter(this);
    window->installEventFilter(this);
    if (!m_showsInDock) {
        m_showsInDock = true;
        m_windows.setShowsInDock(true);
    }
    const QUuid id = QUuid::createUuid();
    m_pending.insert(id, window);
    attempt(id, activationToken);
    QTimer::singleShot(settleDelayMs, this, [this, id] {
        // The first request often lands before the window is mapped; repeat it once.
        if (const QPointer<QWidget> window = m_pending.value(id); window && !window->isActiveWindow())
            m_windows.activateOwnWindow(window->windowHandle());
    });
    QTimer::singleShot(secondAttemptDelayMs, this, [this, id] {
        if (m_pending.contains(id))
            attempt(id);
    });
    QTimer::singleShot(finalAttemptDelayMs, this, [this, id] {
        if (m_pending.contains(id)) {
            attempt(id);
            complete(id);
        }
    });
}

void WindowActivationCoordinator::attempt(const QUuid &id, const QString &activationToken)
{
    const QPointer<QWidget> window = m_pending.value(id);
    if (!window) {
        m_pending.remove(id);
        return;
    }
    window->show();
    window->raise();
    window->activateWindow();
    m_windows.activateOwnWindow(window->windowHandle(), activationToken);
    if (window->isActiveWindow())
        complete(id);
}

void WindowActivationCoordinator::complete(const QUuid &id)
{
    m_pending.remove(id);
    QTimer::singleShot(accessoryRestoreDelayMs, this,
                       &WindowActivationCoordinator::restoreAccessoryPolicyIfNeeded);
}

void WindowActivationCoordinator::restoreAccessoryPolicyIfNeeded()
{
    if (!m_showsInDock)
        return;
    for (const QWidget *window : QApplication::topLevelWidgets()) {
        if (window->isVisible() && !window->isMinimized() &&
            !window->testAttribute(Qt::WA_DontShowOnScreen) && window->windowType() != Qt::Popup &&
            window->windowType() != Qt::ToolTip)
            return;
    }
    m_showsInDock = false;
    m_windows.setShowsInDock(false);
}

bool WindowActivationCoordinator::eventFilter(QObject *watched, QEvent *event)
{
    if (event->type() == QEvent::Hide || event->type() == QEvent::Close)
        QTimer::singleShot(0, this, &WindowActivationCoordinator::restoreAccessoryPolicyIfNeeded);
    return QObject::eventFilter(watched, event);
}

bool WindowActivationCoordinator::restoreFocus(const std::optional<QString> &executableName,
                                               const std::optional<qint64> &pid)
{
    const qint64 ownPid = QCoreApplication::applicationPid();
    if (pid && *pid > 0 && *pid != ownPid && m_windows.activateApplication(*pid))
        return true;
    if (executableName && !executableName->isEmpty()) {
        for (const TopLevelWindow &window : m_windows.topLevelWindows()) {
            if (window.pid != ownPid && window.pid > 0 &&
                m_windows.executableName(window.pid) == *executableName)
                return m_windows.activateWindow(window.id);
        }
    }
    return false;
}
