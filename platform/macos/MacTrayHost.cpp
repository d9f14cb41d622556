#include "platform/TrayHost.h"

namespace TrayHost {

// Qt's tray on the Mac is an NSStatusItem whose menu is the application's own QMenu, so custom
// rows show as they are.
bool exportsMenus()
{
    return false;
}

void quietenFallbackWarnings() {}

} // namespace TrayHost
