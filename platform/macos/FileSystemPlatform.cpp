#include "platform/FileSystemPlatform.h"

#include <cerrno>
#include <cstdio>
#include <sys/stat.h>

namespace FileSystemPlatform {

int renameWithoutReplacing(const char *from, const char *to)
{
    if (::renamex_np(from, to, RENAME_EXCL) == 0)
        return 0;
    if (errno != ENOTSUP)
        return -1;
    // The file system does not support the flag.
    struct stat info {};
    if (::lstat(to, &info) == 0) {
        errno = EEXIST;
        return -1;
    }
    return std::rename(from, to);
}

} // namespace FileSystemPlatform
