#pragma once

#include <QList>
#include <QRectF>

#include <optional>

// Turns window-server rectangles (origin at the top left of the primary display, y downward) into
// the Mac toolkit's screen rectangles (origin at the bottom left of the primary display, y upward)
// and on into Qt's desktop coordinates. Plain arithmetic, so that it is checked without a Mac.
namespace ScreenCoordinateConverter {

// One display as both coordinate systems see it.
struct Display {
    // The display's bounds in window-server coordinates.
    QRectF displayBounds;
    // The same display's screen frame in toolkit coordinates.
    QRectF screenFrame;
};

// The display whose bounds hold the rectangle's midpoint (the first in the given order) places
// it: the offset from that display's top left is kept, measured from the top left of its screen
// frame. Without such a display the rectangle is flipped against the main screen's height (or,
// without a main screen, its own bottom edge).
QRectF appKitRect(const QRectF &quartzRect, const QList<Display> &displays,
                  const std::optional<QRectF> &mainScreenFrame);

// A toolkit rectangle in Qt's desktop coordinates: the origin at the top left of the primary
// screen, y downward.
QRectF desktopRect(const QRectF &appKitRect, double primaryScreenHeight);

} // namespace ScreenCoordinateConverter
