#pragma once

// Conventions of the system Tarvel runs on that plain Qt code needs to know about.
namespace HostPlatform {

// The Mac's conventions: settings in the native user-defaults domain, shortcuts shown with
// the Mac's modifier symbols.
bool usesMacConventions();

} // namespace HostPlatform
