#include "platform/HostPlatform.h"

namespace HostPlatform {

bool usesMacConventions()
{
    return false;
}

} // namespace HostPlatform
