#include "permissions/PermissionWording.h"

#include "platform/HostPlatform.h"

PermissionWording PermissionWording::forMac()
{
    return {QStringLiteral("macOS"), QStringLiteral("macOS"), QStringLiteral("this Mac"), true};
}

PermissionWording PermissionWording::forOtherSystems()
{
    return {QStringLiteral("the system"), QStringLiteral("The system"), QStringLiteral("this computer"),
            false};
}

PermissionWording PermissionWording::host()
{
    return HostPlatform::usesMacConventions() ? forMac() : forOtherSystems();
}
