#include "composer/ComposerLayout.h"

#include <algorithm>
#include <cmath>

namespace ComposerLayout {

double fallbackTextWidth(Mode mode, std::optional<double> windowWidth)
{
    const double width = windowWidth ? *windowWidth - 2 * horizontalPadding : 504;
    return mode == Mode::editorRequest ? std::max(width - 36, 308.0) : std::max(width, 344.0);
}

double contentToFooterSectionHeight(const Input &input)
{
    if (input.mode == Mode::editorRequest)
        return interSectionSpacing;
    if (!input.scratchReady)
        return availabilityOverlaySectionHeight;
    const double available =
        input.windowWidth ? std::max(*input.windowWidth - 2 * horizontalPadding, 344.0) : 504;
    const double strip = input.stripHeightForWidth ? input.stripHeightForWidth(available) : 0;
    return strip + attachmentTopSpacing + interSectionSpacing;
}

double topPartHeight(const Input &input)
{
    if (input.mode == Mode::editorRequest)
        return topPadding + input.topBarHeight;
    const double header = std::max(std::trunc(input.headerIntrinsicHeight), 22.0);
    return topPadding + header + headerSpacing + input.topBarHeight;
}

LayoutMetrics compute(const Input &input)
{
    LayoutMetrics metrics;
    metrics.contentHeight = input.measuredTextHeight;
    metrics.visibleHeight = std::min(input.measuredTextHeight, input.maximumVisibleTextHeight);
    metrics.showsVerticalScroller = input.measuredTextHeight > input.maximumVisibleTextHeight;
    const double contentWidth = std::trunc(input.scrollContentWidth);
    metrics.contentWidth = contentWidth > 0 ? contentWidth : fallbackTextWidth(input.mode, input.windowWidth);
    metrics.totalHeight = topPartHeight(input) + metrics.visibleHeight + contentToFooterSectionHeight(input) +
                          footerHeight + bottomPadding;
    return metrics;
}

double minimumPanelHeight(const Input &input)
{
    return topPartHeight(input) + minTextHeight + contentToFooterSectionHeight(input) + footerHeight +
           bottomPadding;
}

} // namespace ComposerLayout
