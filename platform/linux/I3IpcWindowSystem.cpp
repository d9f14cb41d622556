#include "platform/linux/I3IpcWindowSystem.h"

#include "platform/linux/I3IpcClient.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QPointer>
#include <QScreen>
#include <QStringList>
#include <QTimer>
#include <QWindow>

namespace {

QString containerCommand(qint64 conId, const QString &commands)
{
    return QStringLiteral("[con_id=%1] %2").arg(conId).arg(commands);
}

// The title Qt gives the compositor: the window's own, followed by the application's name.
bool hasTitleOf(const I3IpcTree::Window &container, const QWindow *window)
{
    const QString title =
        window->title().isEmpty() ? QGuiApplication::applicationDisplayName() : window->title();
    return container.title == title || container.title.startsWith(title + u' ');
}

} // namespace

// Our own windows in the tree. The compositor tells no client which container holds its surface,
// so a window is matched to the first new container of this process with its title, in the order
// the windows were shown; from then on it is addressed by that container's id.
class I3IpcWindowSystem::OwnWindows final : public QObject {
public:
    explicit OwnWindows(I3IpcClient &ipc)
        : m_ipc(ipc)
    {
        connect(&ipc, &I3IpcClient::windowEvent, this, &OwnWindows::windowEvent);
        ipc.subscribeToWindowEvents();
    }

    void follow(QWindow *window)
    {
        Tracked &tracked = track(window);
        if (tracked.follows)
            return;
        tracked.follows = true;
        for (auto changed :
             {&QWindow::xChanged, &QWindow::yChanged, &QWindow::widthChanged, &QWindow::heightChanged})
            connect(window, changed, this, [this, window] { scheduleMove(window); });
    }

    void focus(QWindow *window, const std::optional<QList<I3IpcTree::Window>> &tree)
    {
        Tracked &tracked = track(window);
        if (tracked.conId == 0 && tree)
            tracked.conId = unclaimedContainerOf(window, *tree);
        if (tracked.conId == 0) {
            tracked.wantsFocus = true; // when its container appears
            return;
        }
        m_ipc.runCommand(containerCommand(tracked.conId, QStringLiteral("focus")));
    }

private:
    struct Tracked {
        QPointer<QWindow> window;
        qint64 conId = 0;
        bool follows = false;
        bool wantsFocus = false;
        bool movePending = false;
    };

    Tracked &track(QWindow *window)
    {
        for (Tracked &tracked : m_tracked) {
            if (tracked.window == window)
                return tracked;
        }
        m_tracked.append({window});
        connect(window, &QObject::destroyed, this, &OwnWindows::forgetDestroyed);
        // The compositor drops a hidden window's container; showing it again makes a new one.
        connect(window, &QWindow::visibleChanged, this, [this, window](bool visible) {
            if (!visible) {
                if (Tracked *tracked = find(window))
                    tracked->conId = 0;
            }
        });
        return m_tracked.last();
    }

    Tracked *find(const QWindow *window)
    {
        for (Tracked &tracked : m_tracked) {
            if (tracked.window == window)
                return &tracked;
        }
        return nullptr;
    }

    void forgetDestroyed()
    {
        m_tracked.removeIf([](const Tracked &tracked) { return tracked.window.isNull(); });
    }

    bool isClaimed(qint64 conId) const
    {
        return std::any_of(m_tracked.cbegin(), m_tracked.cend(),
                           [conId](const Tracked &tracked) { return tracked.conId == conId; });
    }

    qint64 unclaimedContainerOf(const QWindow *window, const QList<I3IpcTree::Window> &tree) const
    {
        const qint64 ownPid = QCoreApplication::applicationPid();
        for (const I3IpcTree::Window &container : tree) {
            if (container.pid == ownPid && hasTitleOf(container, window) && !isClaimed(container.id))
                return container.id;
        }
        return 0;
    }

    void windowEvent(const QByteArray &payload)
    {
        const std::optional<I3IpcTree::WindowEvent> event = I3IpcTree::windowEvent(payload);
        if (!event || event->container.pid != QCoreApplication::applicationPid())
            return;
        const I3IpcTree::Window &container = event->container;
        if (event->change == u"close") {
            for (Tracked &tracked : m_tracked) {
                if (tracked.conId == container.id)
                    tracked.conId = 0;
            }
            return;
        }
        QStringList commands;
        // Our windows float whatever hints the compositor read: tiled, a panel would fill half the
        // screen and a dialog would push the user's windows aside.
        if (event->change == u"new")
            commands.append(QStringLiteral("floating enable"));
        // A new container has no title yet; the window is known by the first event that has one.
        if (!isClaimed(container.id)) {
            for (Tracked &tracked : m_tracked) {
                if (tracked.conId != 0 || !tracked.window || !tracked.window->isVisible() ||
                    !hasTitleOf(container, tracked.window))
                    continue;
                tracked.conId = container.id;
                if (tracked.follows)
                    commands << QStringLiteral("border none") << moveCommand(*tracked.window);
                if (std::exchange(tracked.wantsFocus, false))
                    commands.append(QStringLiteral("focus"));
                break;
            }
        }
        if (!commands.isEmpty())
            m_ipc.runCommand(containerCommand(container.id, commands.join(QStringLiteral(", "))));
    }

    static QString moveCommand(const QWindow &window)
    {
        return QStringLiteral("move absolute position %1 %2").arg(window.x()).arg(window.y());
    }

    // A panel changes its frame in steps (height, then top edge); one move follows them all.
    void scheduleMove(QWindow *window)
    {
        Tracked *tracked = find(window);
        if (tracked == nullptr || tracked->movePending)
            return;
        tracked->movePending = true;
        QTimer::singleShot(0, this, [this, guarded = QPointer<QWindow>(window)] {
            Tracked *tracked = find(guarded);
            if (tracked == nullptr)
                return;
            tracked->movePending = false;
            if (guarded && tracked->conId != 0)
                m_ipc.runCommand(containerCommand(tracked->conId, moveCommand(*guarded)));
        });
    }

    I3IpcClient &m_ipc;
    QList<Tracked> m_tracked;
};

I3IpcWindowSystem::I3IpcWindowSystem(const QString &socketPath)
    : m_ipc(std::make_unique<I3IpcClient>(socketPath))
    , m_own(std::make_unique<OwnWindows>(*m_ipc))
{
}

I3IpcWindowSystem::~I3IpcWindowSystem() = default;

std::optional<QList<I3IpcTree::Window>> I3IpcWindowSystem::treeWindows() const
{
    const std::optional<QByteArray> tree = m_ipc->request(I3Ipc::getTree);
    return tree ? I3IpcTree::windows(*tree) : std::nullopt;
}

TopLevelWindow I3IpcWindowSystem::topLevelWindow(const I3IpcTree::Window &window)
{
    TopLevelWindow result;
    result.id = quint64(window.id);
    result.pid = window.pid;
    result.windowInstance = window.appId.isEmpty() ? window.windowInstance : window.appId;
    result.windowClass = window.appId.isEmpty() ? window.windowClass : window.appId;
    result.frame = window.frame;
    return result;
}

bool I3IpcWindowSystem::isAvailable() const
{
    return m_ipc->request(I3Ipc::getWorkspaces).has_value();
}

QList<TopLevelWindow> I3IpcWindowSystem::topLevelWindows() const
{
    const qint64 ownPid = QCoreApplication::applicationPid();
    QList<TopLevelWindow> result;
    for (const I3IpcTree::Window &window : treeWindows().value_or(QList<I3IpcTree::Window>())) {
        if (window.visible && window.pid != ownPid)
            result.append(topLevelWindow(window));
    }
    return result;
}

std::optional<TopLevelWindow> I3IpcWindowSystem::activeWindow() const
{
    for (const I3IpcTree::Window &window : treeWindows().value_or(QList<I3IpcTree::Window>())) {
        if (window.focused)
            return topLevelWindow(window);
    }
    return std::nullopt;
}

bool I3IpcWindowSystem::activateWindow(quint64 windowId)
{
    return windowId > 0 && m_ipc->runCommand(containerCommand(qint64(windowId), QStringLiteral("focus")));
}

bool I3IpcWindowSystem::activateApplication(qint64 pid)
{
    return activateFrontWindowOf(pid);
}

QList<ScreenArea> I3IpcWindowSystem::screens() const
{
    QList<ScreenArea> result = WaylandWindowSystem::screens();
    const std::optional<QByteArray> reply = m_ipc->request(I3Ipc::getWorkspaces);
    const QList<I3IpcTree::Workspace> workspaces =
        (reply ? I3IpcTree::workspaces(*reply) : std::nullopt).value_or(QList<I3IpcTree::Workspace>());
    const QList<QScreen *> screens = QGuiApplication::screens();
    // A bar's space is left out of the workspace shown on its output, not of the output.
    for (qsizetype index = 0; index < screens.size() && index < result.size(); ++index) {
        for (const I3IpcTree::Workspace &workspace : workspaces) {
            const QRect shared = workspace.rect.intersected(result[index].geometry);
            if (workspace.visible && workspace.output == screens[index]->name() && !shared.isEmpty())
                result[index].workArea = shared;
        }
    }
    return result;
}

int I3IpcWindowSystem::primaryScreenIndex() const
{
    const std::optional<QByteArray> reply = m_ipc->request(I3Ipc::getWorkspaces);
    const QList<QScreen *> screens = QGuiApplication::screens();
    for (const I3IpcTree::Workspace &workspace :
         (reply ? I3IpcTree::workspaces(*reply) : std::nullopt).value_or(QList<I3IpcTree::Workspace>())) {
        for (qsizetype index = 0; workspace.focused && index < screens.size(); ++index) {
            if (screens[index]->name() == workspace.output)
                return int(index);
        }
    }
    return WaylandWindowSystem::primaryScreenIndex();
}

bool I3IpcWindowSystem::activateOwnWindow(QWindow *window, const QString &activationToken)
{
    if (window == nullptr)
        return false;
    m_own->focus(window, treeWindows());
    return WaylandWindowSystem::activateOwnWindow(window, activationToken);
}

void I3IpcWindowSystem::followOwnWindow(QWindow *window)
{
    if (window != nullptr)
        m_own->follow(window);
}
