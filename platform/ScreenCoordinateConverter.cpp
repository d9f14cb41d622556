#include "platform/ScreenCoordinateConverter.h"

namespace ScreenCoordinateConverter {

QRectF appKitRect(const QRectF &quartzRect, const QList<Display> &displays,
                  const std::optional<QRectF> &mainScreenFrame)
{
    const QPointF midpoint = quartzRect.center();
    for (const Display &display : displays) {
        // As the window server counts it, a display holds its left and top edges but not its right
        // and bottom ones: a midpoint on a shared border belongs to the display that starts there.
        const QRectF &bounds = display.displayBounds;
        if (midpoint.x() < bounds.left() || midpoint.x() >= bounds.left() + bounds.width() ||
            midpoint.y() < bounds.top() || midpoint.y() >= bounds.top() + bounds.height())
            continue;
        const double dx = quartzRect.x() - bounds.x();
        const double dy = quartzRect.y() - bounds.y();
        const QRectF &frame = display.screenFrame;
        return {frame.x() + dx, frame.y() + frame.height() - dy - quartzRect.height(), quartzRect.width(),
                quartzRect.height()};
    }
    const double base = mainScreenFrame ? mainScreenFrame->height() : quartzRect.y() + quartzRect.height();
    return {quartzRect.x(), base - (quartzRect.y() + quartzRect.height()), quartzRect.width(),
            quartzRect.height()};
}

QRectF desktopRect(const QRectF &appKitRect, double primaryScreenHeight)
{
    return {appKitRect.x(), primaryScreenHeight - (appKitRect.y() + appKitRect.height()), appKitRect.width(),
            appKitRect.height()};
}

} // namespace ScreenCoordinateConverter
