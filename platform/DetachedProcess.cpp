#include "platform/DetachedProcess.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace DetachedProcess {
namespace {

void closeOnExec(int descriptor)
{
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

// Between fork and exec: async-signal-safe calls only.
[[noreturn]] void execute(const char *program, char *const argv[], const char *workingDirectory, int report)
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int signalNumber : {SIGINT, SIGTERM, SIGHUP, SIGPIPE})
        ::sigaction(signalNumber, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);

    const int null = ::open("/dev/null", O_RDWR);
    if (null >= 0) {
        for (int stream = 0; stream < 3; ++stream)
            ::dup2(null, stream);
        if (null > 2)
            ::close(null);
    }
    if (::chdir(workingDirectory) != 0 && ::chdir("/") != 0)
        ::_exit(127);
    ::execv(program, argv);
    const int error = errno;
    [[maybe_unused]] const ssize_t written = ::write(report, &error, sizeof error);
    ::_exit(127);
}

} // namespace

int start(const std::string &program, const std::vector<std::string> &arguments,
          const std::string &workingDirectory)
{
    // Everything that allocates happens before the fork.
    std::vector<char *> argv;
    argv.push_back(const_cast<char *>(program.c_str()));
    for (const std::string &argument : arguments)
        argv.push_back(const_cast<char *>(argument.c_str()));
    argv.push_back(nullptr);

    // The grandchild writes its exec error here; a successful exec closes it unwritten.
    int report[2];
    if (::pipe(report) != 0)
        return errno;
    closeOnExec(report[0]);
    closeOnExec(report[1]);

    // Two forks, so the application's parent is gone at once and it is adopted by the system.
    const pid_t child = ::fork();
    if (child < 0) {
        const int error = errno;
        ::close(report[0]);
        ::close(report[1]);
        return error;
    }
    if (child == 0) {
        ::close(report[0]);
        ::setsid();
        const pid_t grandchild = ::fork();
        if (grandchild == 0)
            execute(program.c_str(), argv.data(), workingDirectory.c_str(), report[1]);
        if (grandchild < 0) {
            const int error = errno;
            [[maybe_unused]] const ssize_t written = ::write(report[1], &error, sizeof error);
        }
        ::_exit(0);
    }

    ::close(report[1]);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    int error = 0;
    ssize_t received = 0;
    while ((received = ::read(report[0], &error, sizeof error)) < 0 && errno == EINTR) {
    }
    ::close(report[0]);
    return received == ssize_t(sizeof error) ? error : 0;
}

} // namespace DetachedProcess
