#include "platform/WindowSystem.h"

#include "platform/linux/I3IpcClient.h"
#include "platform/linux/I3IpcWindowSystem.h"
#include "platform/linux/WaylandWindowSystem.h"
#include "platform/linux/X11WindowSystem.h"

#include <QGuiApplication>

#include <fontconfig/fontconfig.h>

#include <thread>

namespace {
const char *const fixedPositions = "QT_WAYLAND_DISABLE_FIXED_POSITIONS";
bool setsFixedPositions = false;
} // namespace

std::unique_ptr<WindowSystem> WindowSystem::create()
{
    // Qt has read it by now; the programs Tarvel starts keep their own default.
    if (std::exchange(setsFixedPositions, false))
        qunsetenv(fixedPositions);
    if (!QGuiApplication::platformName().startsWith(u"wayland"))
        return std::make_unique<X11WindowSystem>();
    // sway (and any compositor that speaks the i3 IPC) names its socket in the environment.
    if (const QString socket = I3IpcClient::socketPathFromEnvironment(); !socket.isEmpty()) {
        auto windows = std::make_unique<I3IpcWindowSystem>(socket);
        if (windows->isAvailable())
            return windows;
    }
    return std::make_unique<WaylandWindowSystem>();
}

void WindowSystem::prepareEnvironment()
{
    // Reading fontconfig's configuration and caches takes a few milliseconds that the first
    // composer would otherwise wait for; here it overlaps the display connection Qt makes next.
    // Qt's own FcInit() then finds it done (or, if it comes first, does it itself; both are safe).
    std::thread(&FcInit).detach();

    // Qt on Wayland reports every top-level window at its screen's top left unless told otherwise.
    // The frames Tarvel sets are what its panels grow from and what sway is asked to move them to.
    if (!qEnvironmentVariableIsSet(fixedPositions)) {
        qputenv(fixedPositions, "1");
        setsFixedPositions = true;
    }
}
