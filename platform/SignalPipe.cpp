#include "platform/SignalPipe.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace {

int s_pipe[2] = {-1, -1};
constexpr int kWatchedSignals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void forwardSignal(int signalNumber)
{
    const int savedErrno = errno;
    const unsigned char byte = static_cast<unsigned char>(signalNumber);
    [[maybe_unused]] const ssize_t written = ::write(s_pipe[1], &byte, 1);
    errno = savedErrno;
}

void makeNonBlockingAndCloseOnExec(int descriptor)
{
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
}

} // namespace

SignalPipe::SignalPipe()
{
    if (::pipe(s_pipe) != 0)
        throw std::system_error(errno, std::generic_category(), "create a pipe");
    makeNonBlockingAndCloseOnExec(s_pipe[0]);
    makeNonBlockingAndCloseOnExec(s_pipe[1]);

    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : kWatchedSignals)
        ::sigaction(signalNumber, &action, nullptr);
}

SignalPipe::~SignalPipe()
{
    restoreDefaultDispositions();
    ::close(s_pipe[0]);
    ::close(s_pipe[1]);
    s_pipe[0] = s_pipe[1] = -1;
}

int SignalPipe::descriptor() const
{
    return s_pipe[0];
}

void SignalPipe::drain(const std::function<void(int)> &signalled)
{
    unsigned char byte = 0;
    while (::read(s_pipe[0], &byte, 1) == 1)
        signalled(byte);
}

void SignalPipe::restoreDefaultDispositions()
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int signalNumber : kWatchedSignals)
        ::sigaction(signalNumber, &action, nullptr);
    ::sigaction(SIGPIPE, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}
