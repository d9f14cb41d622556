#include "quicktasks/StandardInput.h"

#include "core/TarvelError.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace StandardInput {

bool redirectToNullDevice()
{
    struct stat nullDevice {};
    struct stat current {};
    if (::stat("/dev/null", &nullDevice) != 0)
        throw SystemError(QStringLiteral("open /dev/null"), errno);
    if (::fstat(STDIN_FILENO, &current) == 0 && S_ISCHR(current.st_mode) &&
        current.st_rdev == nullDevice.st_rdev)
        return false;

    const int descriptor = ::open("/dev/null", O_RDONLY);
    if (descriptor < 0)
        throw SystemError(QStringLiteral("open /dev/null"), errno);
    if (descriptor != STDIN_FILENO) {
        const int result = ::dup2(descriptor, STDIN_FILENO);
        const int error = errno;
        ::close(descriptor);
        if (result < 0)
            throw SystemError(QStringLiteral("redirect standard input"), error);
    }
    return true;
}

} // namespace StandardInput
