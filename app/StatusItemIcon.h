#pragma once

#include <QIcon>
#include <QImage>

// The tray glyph: a small terminal window with a ">" prompt and, in one of its two
// states, the prompt line after it. Blinking alternates the two while tasks run.
namespace StatusItemIcon {

inline constexpr int width = 20;
inline constexpr int height = 18;

QImage makeImage(bool showsPromptLine, qreal devicePixelRatio = 1.0);
QIcon makeIcon(bool showsPromptLine);

} // namespace StatusItemIcon
