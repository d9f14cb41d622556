#include "platform/WindowSystem.h"

#include "platform/ScreenCoordinateConverter.h"

#include <QGuiApplication>
#include <QScreen>

#import <AppKit/AppKit.h>
#import <CoreGraphics/CoreGraphics.h>

#include <libproc.h>
#include <unistd.h>

// The window server's list of on-screen windows (front to back) and NSRunningApplication for
// activation. The list's bounds are converted through ScreenCoordinateConverter; screens come
// from Qt, which already works in the same top-left, y-downward space.
namespace {

QList<ScreenCoordinateConverter::Display> displays()
{
    QList<ScreenCoordinateConverter::Display> result;
    for (NSScreen *screen in NSScreen.screens) {
        NSNumber *number = screen.deviceDescription[@"NSScreenNumber"];
        if (!number)
            continue;
        const CGRect bounds = CGDisplayBounds(number.unsignedIntValue);
        const NSRect frame = screen.frame;
        result.append({QRectF(bounds.origin.x, bounds.origin.y, bounds.size.width, bounds.size.height),
                       QRectF(frame.origin.x, frame.origin.y, frame.size.width, frame.size.height)});
    }
    return result;
}

std::optional<QRectF> mainScreenFrame()
{
    NSScreen *main = NSScreen.mainScreen;
    if (!main)
        return std::nullopt;
    const NSRect frame = main.frame;
    return QRectF(frame.origin.x, frame.origin.y, frame.size.width, frame.size.height);
}

// The toolkit's y axis turns about the primary display: the first of NSScreen.screens.
double primaryScreenHeight()
{
    NSArray<NSScreen *> *screens = NSScreen.screens;
    return screens.count > 0 ? screens.firstObject.frame.size.height : 0;
}

class MacWindowSystem final : public WindowSystem {
public:
    bool isAvailable() const override { return NSScreen.screens.count > 0; }

    QList<TopLevelWindow> topLevelWindows() const override
    {
        QList<TopLevelWindow> windows;
        CFArrayRef list = CGWindowListCopyWindowInfo(
            CGWindowListOption(kCGWindowListOptionOnScreenOnly | kCGWindowListExcludeDesktopElements),
            kCGNullWindowID);
        if (!list)
            return windows;
        const auto screens = displays();
        const auto main = mainScreenFrame();
        const double primaryHeight = primaryScreenHeight();
        const pid_t self = getpid();
        for (NSDictionary *entry in (__bridge NSArray *)list) {
            // Layer 0 holds ordinary windows; menus, panels and overlays sit above it.
            if ([entry[(__bridge NSString *)kCGWindowLayer] intValue] != 0)
                continue;
            const pid_t pid = [entry[(__bridge NSString *)kCGWindowOwnerPID] intValue];
            if (pid == self)
                continue;
            CGRect bounds;
            NSDictionary *boundsEntry = entry[(__bridge NSString *)kCGWindowBounds];
            if (!boundsEntry ||
                !CGRectMakeWithDictionaryRepresentation((__bridge CFDictionaryRef)boundsEntry, &bounds))
                continue;
            const QRectF quartz(bounds.origin.x, bounds.origin.y, bounds.size.width, bounds.size.height);
            const QRectF appKit = ScreenCoordinateConverter::appKitRect(quartz, screens, main);
            TopLevelWindow window;
            window.id = [entry[(__bridge NSString *)kCGWindowNumber] unsignedLongLongValue];
            window.pid = pid;
            NSRunningApplication *owner = [NSRunningApplication runningApplicationWithProcessIdentifier:pid];
            window.windowInstance = QString::fromNSString(entry[(__bridge NSString *)kCGWindowOwnerName]);
            window.windowClass = QString::fromNSString(owner.bundleIdentifier);
            window.frame = ScreenCoordinateConverter::desktopRect(appKit, primaryHeight).toAlignedRect();
            windows.append(window);
        }
        CFRelease(list);
        return windows;
    }

    std::optional<TopLevelWindow> activeWindow() const override
    {
        NSRunningApplication *front = NSWorkspace.sharedWorkspace.frontmostApplication;
        if (!front)
            return std::nullopt;
        for (const TopLevelWindow &window : topLevelWindows()) {
            if (window.pid == front.processIdentifier)
                return window;
        }
        return std::nullopt;
    }

    // The window server lets an application raise only its own windows; another application's
    // window comes forward with its application.
    bool activateWindow(quint64 windowId) override
    {
        for (const TopLevelWindow &window : topLevelWindows()) {
            if (window.id == windowId)
                return activateApplication(window.pid);
        }
        return false;
    }

    bool activateApplication(qint64 pid) override
    {
        NSRunningApplication *application =
            [NSRunningApplication runningApplicationWithProcessIdentifier:static_cast<pid_t>(pid)];
        return application && [application activateWithOptions:0];
    }

    QString executableName(qint64 pid) const override
    {
        char path[PROC_PIDPATHINFO_MAXSIZE];
        if (proc_pidpath(static_cast<int>(pid), path, sizeof path) <= 0)
            return {};
        return QString::fromUtf8(path).section(QLatin1Char('/'), -1);
    }

    // Quartz composites every window.
    bool compositorRunning() const override { return true; }

    QList<ScreenArea> screens() const override
    {
        QList<ScreenArea> areas;
        for (const QScreen *screen : QGuiApplication::screens())
            areas.append({screen->geometry(), screen->availableGeometry()});
        return areas;
    }

    int primaryScreenIndex() const override
    {
        return static_cast<int>(QGuiApplication::screens().indexOf(QGuiApplication::primaryScreen()));
    }

    void setShowsInDock(bool shown) override
    {
        [NSApp setActivationPolicy:shown ? NSApplicationActivationPolicyRegular
                                         : NSApplicationActivationPolicyAccessory];
    }
};

} // namespace

std::unique_ptr<WindowSystem> WindowSystem::create()
{
    return std::make_unique<MacWindowSystem>();
}

void WindowSystem::prepareEnvironment()
{
    // Nothing the Mac's Qt reads at start-up needs setting.
}
