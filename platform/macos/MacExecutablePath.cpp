#include "platform/ExecutablePath.h"

#include <mach-o/dyld.h>

#include <climits>
#include <cstdlib>
#include <vector>

namespace ExecutablePath {

std::string ofThisProcess()
{
    uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::vector<char> path(size + 1);
    if (_NSGetExecutablePath(path.data(), &size) != 0)
        return {};
    char resolved[PATH_MAX];
    return ::realpath(path.data(), resolved) ? std::string(resolved) : std::string(path.data());
}

} // namespace ExecutablePath
