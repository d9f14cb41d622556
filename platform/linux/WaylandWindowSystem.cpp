#include "platform/linux/WaylandWindowSystem.h"

#include "platform/linux/FloatingWindowHints.h"
#include "platform/linux/ProcessExecutableName.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

WaylandWindowSystem::WaylandWindowSystem()
    : m_floatingHints(std::make_unique<FloatingWindowHints>())
{
}

WaylandWindowSystem::~WaylandWindowSystem() = default;

bool WaylandWindowSystem::activateWindow(quint64 windowId)
{
    Q_UNUSED(windowId);
    return false;
}

bool WaylandWindowSystem::activateApplication(qint64 pid)
{
    Q_UNUSED(pid);
    return false;
}

QString WaylandWindowSystem::executableName(qint64 pid) const
{
    return processExecutableName(pid);
}

QList<ScreenArea> WaylandWindowSystem::screens() const
{
    QList<ScreenArea> result;
    for (const QScreen *screen : QGuiApplication::screens())
        result.append({screen->geometry(), screen->availableGeometry()});
    return result;
}

int WaylandWindowSystem::primaryScreenIndex() const
{
    return int(QGuiApplication::screens().indexOf(QGuiApplication::primaryScreen()));
}

bool WaylandWindowSystem::activateOwnWindow(QWindow *window, const QString &activationToken)
{
    if (window == nullptr)
        return false;
    // Qt hands the token in XDG_ACTIVATION_TOKEN to the compositor with its next activation request
    // and then clears it; without one it asks the compositor for a token of its own.
    if (!activationToken.isEmpty())
        qputenv("XDG_ACTIVATION_TOKEN", activationToken.toUtf8());
    window->requestActivate();
    return true;
}
