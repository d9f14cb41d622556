#include "platform/ExecutablePath.h"

#include <climits>
#include <unistd.h>

namespace ExecutablePath {

std::string ofThisProcess()
{
    char path[PATH_MAX];
    const ssize_t length = ::readlink("/proc/self/exe", path, sizeof path);
    return length > 0 && size_t(length) < sizeof path ? std::string(path, size_t(length)) : std::string();
}

} // namespace ExecutablePath
