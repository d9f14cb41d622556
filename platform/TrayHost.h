#pragma once

// Whether the desktop's tray draws menus itself from an exported description (a
// StatusNotifierItem host). Such menus lose custom rows, so Tarvel pops up its own.
namespace TrayHost {
bool exportsMenus();
// Call before the first tray icon is made. Keeps the log free of what Qt's tray says when it
// falls back to a kind of tray this session cannot have (XEmbed outside X11).
void quietenFallbackWarnings();
} // namespace TrayHost
