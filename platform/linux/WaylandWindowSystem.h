#pragma once

#include "platform/WindowSystem.h"

#include <memory>

class FloatingWindowHints;

// The window system of a Wayland session. A client sees none of the other clients' windows and
// cannot place or raise its own: the compositor decides where a window goes and whether it gets
// the keyboard. So the queries about other windows answer empty; our own windows float at their
// own size and ask for the keyboard with xdg-activation, through Qt.
class WaylandWindowSystem : public WindowSystem {
public:
    WaylandWindowSystem();
    ~WaylandWindowSystem() override;

    WaylandWindowSystem(const WaylandWindowSystem &) = delete;
    WaylandWindowSystem &operator=(const WaylandWindowSystem &) = delete;

    bool isAvailable() const override { return false; }
    QList<TopLevelWindow> topLevelWindows() const override { return {}; }
    std::optional<TopLevelWindow> activeWindow() const override { return std::nullopt; }
    bool activateWindow(quint64 windowId) override;
    bool activateApplication(qint64 pid) override;
    QString executableName(qint64 pid) const override;
    // Every Wayland compositor composites.
    bool compositorRunning() const override { return true; }
    QList<ScreenArea> screens() const override;
    int primaryScreenIndex() const override;
    bool activateOwnWindow(QWindow *window, const QString &activationToken) override;
    bool floatsFixedSizeWindows() const override { return true; }

private:
    std::unique_ptr<FloatingWindowHints> m_floatingHints;
};
