#pragma once

// Whether the desktop's tray draws menus itself from an exported description (a
// StatusNotifierItem host). Such menus lose custom rows, so Tarvel pops up its own.
namespace TrayHost {
bool exportsMenus();
}
