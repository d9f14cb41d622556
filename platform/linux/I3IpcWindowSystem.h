#pragma once

#include "platform/linux/I3IpcTree.h"
#include "platform/linux/WaylandWindowSystem.h"

#include <memory>

class I3IpcClient;

// The window system of a Wayland compositor that speaks the i3 IPC (sway): the layout tree names
// every window with its process, app_id, frame and focus, and commands focus, float and move
// windows, ours included. So composers are placed over their terminal by the same rule as on X11,
// and the focus goes back through the IPC.
class I3IpcWindowSystem final : public WaylandWindowSystem {
public:
    explicit I3IpcWindowSystem(const QString &socketPath);
    ~I3IpcWindowSystem() override;

    // Whether the compositor answers on the socket.
    bool isAvailable() const override;
    QList<TopLevelWindow> topLevelWindows() const override;
    std::optional<TopLevelWindow> activeWindow() const override;
    // The id is the container's.
    bool activateWindow(quint64 windowId) override;
    bool activateApplication(qint64 pid) override;
    QList<ScreenArea> screens() const override;
    // The screen that shows the focused workspace: where a panel goes when nothing else says.
    int primaryScreenIndex() const override;
    bool activateOwnWindow(QWindow *window, const QString &activationToken) override;
    void followOwnWindow(QWindow *window) override;

    // A window of the tree as the rest of Tarvel sees it: a Wayland client's app_id stands for
    // both halves of an X11 window class.
    static TopLevelWindow topLevelWindow(const I3IpcTree::Window &window);

private:
    class OwnWindows;
    std::optional<QList<I3IpcTree::Window>> treeWindows() const;

    std::unique_ptr<I3IpcClient> m_ipc;
    std::unique_ptr<OwnWindows> m_own;
};
