#pragma once

#include <functional>
#include <optional>

// The composer panel's measurements and its height rule: the panel grows with its
// text up to a fixed number of lines, then scrolls.
namespace ComposerLayout {

inline constexpr int minTextHeight = 24;
inline constexpr int initialPanelWidth = 520;
inline constexpr int minPanelWidth = 360;
inline constexpr int maxPanelWidth = 1100;
inline constexpr int footerHeight = 22;
inline constexpr int horizontalPadding = 8;
inline constexpr int topPadding = 8;
inline constexpr int bottomPadding = 8;
inline constexpr int interSectionSpacing = 8;
inline constexpr int attachmentTopSpacing = 5;
inline constexpr int headerSpacing = 6;
inline constexpr int maxVisibleLines = 32;
inline constexpr int panelCornerRadius = 10;
inline constexpr int voicePromptButtonWidth = 28;
// Room for the availability overlay while a scratch composer is not ready.
inline constexpr int availabilityOverlaySectionHeight = 32;

enum class Mode { editorRequest, scratch };

struct LayoutMetrics {
    double contentHeight = 0;
    double visibleHeight = 0;
    double contentWidth = 0;
    double totalHeight = 0;
    bool showsVerticalScroller = false;

    friend bool operator==(const LayoutMetrics &, const LayoutMetrics &) = default;
};

struct Input {
    Mode mode = Mode::editorRequest;
    double measuredTextHeight = 0;
    double maximumVisibleTextHeight = 0;
    double scrollContentWidth = 0;
    std::optional<double> windowWidth;
    bool scratchReady = false;
    double headerIntrinsicHeight = 0;
    // The find bar above the text while it shows.
    double topBarHeight = 0;
    // The attachment strip's height for a given width (scratch mode, when ready).
    std::function<double(double)> stripHeightForWidth;
};

// The text width to lay out with before the text view has a size of its own.
double fallbackTextWidth(Mode mode, std::optional<double> windowWidth);
double contentToFooterSectionHeight(const Input &input);
double topPartHeight(const Input &input);
LayoutMetrics compute(const Input &input);
// The smallest panel height: the same sum with the minimum text height.
double minimumPanelHeight(const Input &input);

} // namespace ComposerLayout
