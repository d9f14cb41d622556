#include "platform/ProcessPlatform.h"

#include <fcntl.h>
#include <unistd.h>

namespace ProcessPlatform {

QString defaultLoginShell()
{
    // zsh is not part of a standard Linux system; the POSIX shell still reads the login
    // profile, which is what the PATH query needs.
    if (::access("/bin/zsh", X_OK) == 0)
        return QStringLiteral("/bin/zsh");
    return QStringLiteral("/bin/sh");
}

int addWorkingDirectoryAction(posix_spawn_file_actions_t *actions, const char *path)
{
    return posix_spawn_file_actions_addchdir_np(actions, path);
}

int makeCloseOnExecPipe(int descriptors[2])
{
    return ::pipe2(descriptors, O_CLOEXEC);
}

} // namespace ProcessPlatform
