#pragma once

#include <QString>

// Starting Tarvel when the user logs in: an autostart entry on the Linux desktop, the
// application's login item on the Mac.
namespace LoginItem {

bool isEnabled();
// Throws TarvelError with a sentence for the user when the system refuses.
void setEnabled(bool enabled);
// Where the setting lives, for the user: the entry's path, or the system's own place.
QString location();

} // namespace LoginItem
