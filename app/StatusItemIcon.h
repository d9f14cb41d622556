#pragma once

#include <QIcon>
#include <QImage>

// The tray glyph: a small terminal window with a ">" prompt and, in one of its two
// states, the prompt line after it. Blinking alternates the two while tasks run. A red dot
// in the corner says that a dictation is being recorded.
namespace StatusItemIcon {

inline constexpr int width = 20;
inline constexpr int height = 18;

QImage makeImage(bool showsPromptLine, qreal devicePixelRatio = 1.0, bool showsRecording = false);
QIcon makeIcon(bool showsPromptLine, bool showsRecording = false);

} // namespace StatusItemIcon
