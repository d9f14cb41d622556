#pragma once

#include "platform/WindowSystem.h"

#include <QList>
#include <QRect>
#include <QRectF>
#include <QSize>

#include <optional>

// Where composer panels go on screen. Plain arithmetic over rectangles in the desktop's
// coordinates (y downward), so that it can be checked without a display.
namespace PanelPlacement {

// Distance kept from the edges of the work area.
inline constexpr int screenMargin = 12;
// A request panel's bottom edge sits this far above the bottom of the terminal window.
inline constexpr int terminalBottomInset = 20;
// Without a terminal, the panel's bottom edge sits this far above the work area's bottom.
inline constexpr int workAreaBottomInset = 40;

// The screen for a panel: the first whose geometry holds the centre of the terminal frame,
// else the fallback (the primary screen). -1 without screens.
int screenIndexFor(const std::optional<QRect> &terminalFrame, const QList<ScreenArea> &screens,
                   int fallbackScreenIndex);

// The frame of a request panel of the given size: centred over the terminal window near its
// bottom, kept inside the work area; without a terminal, centred low on the fallback screen.
// Nothing without screens. The panel grows upward from this frame's bottom edge.
std::optional<QRect> requestPanelFrame(const QSize &panelSize, const std::optional<QRect> &terminalFrame,
                                       const QList<ScreenArea> &screens, int fallbackScreenIndex);

// A scratch panel's remembered frame brought back: the width within the panel's limits, the
// current height (the height follows the text) grown upward from the remembered bottom edge,
// and, given the work area, moved inside it. Where the panel is larger than the work area,
// the right and top edges stay visible. Nothing for an empty remembered frame.
std::optional<QRect> restoredScratchFrame(const QRectF &stored, const QRect &current,
                                          const std::optional<QRect> &workArea);

} // namespace PanelPlacement
