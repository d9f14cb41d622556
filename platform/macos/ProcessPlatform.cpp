#include "platform/ProcessPlatform.h"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace ProcessPlatform {

QString defaultLoginShell()
{
    return QStringLiteral("/bin/zsh");
}

int addWorkingDirectoryAction(posix_spawn_file_actions_t *actions, const char *path)
{
    // The standard call arrived with macOS 26; earlier systems only have the _np variant.
    if (__builtin_available(macOS 26.0, *))
        return posix_spawn_file_actions_addchdir(actions, path);
    return posix_spawn_file_actions_addchdir_np(actions, path);
}

int makeCloseOnExecPipe(int descriptors[2])
{
    // There is no pipe2 here. Spawns and forks in this process go through posix_spawn with
    // explicit file actions, and every descriptor we open is marked at once.
    if (::pipe(descriptors) != 0)
        return -1;
    for (int i = 0; i < 2; ++i) {
        if (::fcntl(descriptors[i], F_SETFD, FD_CLOEXEC) != 0) {
            const int error = errno;
            ::close(descriptors[0]);
            ::close(descriptors[1]);
            errno = error;
            return -1;
        }
    }
    return 0;
}

} // namespace ProcessPlatform
