#include "platform/HostPlatform.h"

namespace HostPlatform {

bool usesMacConventions()
{
    return true;
}

} // namespace HostPlatform
