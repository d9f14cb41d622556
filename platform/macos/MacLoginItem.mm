#include "platform/LoginItem.h"

#include "core/TarvelError.h"

#import <Foundation/Foundation.h>
#import <ServiceManagement/ServiceManagement.h>

// The application's own login item (macOS 13 and later); System Settings lists it under
// Login Items, where the user can also switch it off.
namespace LoginItem {

bool isEnabled()
{
    return SMAppService.mainAppService.status == SMAppServiceStatusEnabled;
}

void setEnabled(bool enabled)
{
    NSError *error = nil;
    const BOOL done = enabled ? [SMAppService.mainAppService registerAndReturnError:&error]
                              : [SMAppService.mainAppService unregisterAndReturnError:&error];
    if (!done)
        throw TarvelError(QStringLiteral("Could not change the login item: %1")
                              .arg(QString::fromNSString(error.localizedDescription)));
}

QString location()
{
    return QStringLiteral("System Settings > General > Login Items");
}

} // namespace LoginItem
