#include "platform/ExecutablePath.h"

#include <algorithm>
#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace ExecutablePath {

bool isExecutableFile(const std::string &path)
{
    struct stat info {};
    return !path.empty() && ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

std::string findOnPath(const std::string &name)
{
    const char *variable = std::getenv("PATH");
    const std::string path = variable ? variable : "";
    std::size_t begin = 0;
    while (!path.empty() && begin <= path.size()) {
        const std::size_t end = std::min(path.find(':', begin), path.size());
        const std::string folder = path.substr(begin, end - begin);
        const std::string candidate = (folder.empty() ? std::string(".") : folder) + '/' + name;
        if (isExecutableFile(candidate))
            return candidate;
        begin = end + 1;
    }
    return {};
}

} // namespace ExecutablePath
