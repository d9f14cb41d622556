#include "platform/FileSystemPlatform.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>

namespace FileSystemPlatform {

int renameWithoutReplacing(const char *from, const char *to)
{
    if (::renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return 0;
    if (errno != EINVAL)
        return -1;
    // The file system does not support the flag (or from holds to, which rename refuses too).
    struct stat info {};
    if (::lstat(to, &info) == 0) {
        errno = EEXIST;
        return -1;
    }
    return std::rename(from, to);
}

} // namespace FileSystemPlatform
