#include "composer/PanelPlacement.h"

#include "composer/ComposerLayout.h"

#include <QPointF>
#include <QtMath>

#include <algorithm>

namespace PanelPlacement {

namespace {

// Half-open, so that a point on the seam between two screens belongs to one of them only.
bool holds(const QRect &area, const QPointF &point)
{
    return point.x() >= area.x() && point.x() < area.x() + area.width() && point.y() >= area.y() &&
           point.y() < area.y() + area.height();
}

QPointF centre(const QRect &rect)
{
    return {rect.x() + rect.width() / 2.0, rect.y() + rect.height() / 2.0};
}

} // namespace

int screenIndexFor(const std::optional<QRect> &terminalFrame, const QList<ScreenArea> &screens,
                   int fallbackScreenIndex)
{
    if (screens.isEmpty())
        return -1;
    if (terminalFrame) {
        const QPointF middle = centre(*terminalFrame);
        for (qsizetype i = 0; i < screens.size(); ++i) {
            if (holds(screens[i].geometry, middle))
                return int(i);
        }
    }
    return fallbackScreenIndex >= 0 && fallbackScreenIndex < screens.size() ? fallbackScreenIndex : 0;
}

std::optional<QRect> requestPanelFrame(const QSize &panelSize, const std::optional<QRect> &terminalFrame,
                                       const QList<ScreenArea> &screens, int fallbackScreenIndex)
{
    const int index = screenIndexFor(terminalFrame, screens, fallbackScreenIndex);
    if (index < 0)
        return std::nullopt;
    const QRect area = screens[index].workArea;
    const int width = panelSize.width();
    const int height = panelSize.height();
    const int areaRight = area.x() + area.width();
    const int areaBottom = area.y() + area.height();

    const double middleX = terminalFrame ? centre(*terminalFrame).x() : centre(area).x();
    int x = qFloor(middleX - width / 2.0);
    // The right margin is applied last: it wins when the panel is wider than the area.
    x = std::max(x, area.x() + screenMargin);
    x = std::min(x, areaRight - width - screenMargin);

    int y = 0;
    if (terminalFrame) {
        y = terminalFrame->y() + terminalFrame->height() - terminalBottomInset - height;
        // The top margin is applied last: the panel's top edge stays on screen.
        y = std::min(y, areaBottom - height - screenMargin);
        y = std::max(y, area.y() + screenMargin);
    } else {
        y = areaBottom - workAreaBottomInset - height;
    }
    return QRect(x, y, width, height);
}

std::optional<QRect> restoredScratchFrame(const QRectF &stored, const QRect &current,
                                          const std::optional<QRect> &workArea)
{
    if (stored.isEmpty())
        return std::nullopt;
    const int width =
        std::clamp(qRound(stored.width()), ComposerLayout::minPanelWidth, ComposerLayout::maxPanelWidth);
    const int height = current.height();
    int x = qRound(stored.x());
    int y = qRound(stored.y() + stored.height()) - height;
    if (workArea) {
        x = std::max(x, workArea->x());
        x = std::min(x, workArea->x() + workArea->width() - width);
        y = std::min(y, workArea->y() + workArea->height() - height);
        y = std::max(y, workArea->y());
    }
    return QRect(x, y, width, height);
}

} // namespace PanelPlacement
