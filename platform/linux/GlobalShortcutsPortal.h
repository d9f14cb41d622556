#pragma once

// The desktop portal's GlobalShortcuts interface, the way to system-wide shortcuts under Wayland.
namespace GlobalShortcutsPortal {

// Whether this is a Wayland session whose portal offers the interface (it answers its version).
// Blocks on the session bus for up to 5 s.
bool isOffered();

} // namespace GlobalShortcutsPortal
