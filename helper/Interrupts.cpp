#include "helper/Interrupts.h"

#include "helper/HelperError.h"

#include <cerrno>
#include <csignal>
#include <fcntl.h>
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

Interrupts::Interrupts(std::function<void(int)> interrupted)
    : m_interrupted(std::move(interrupted))
{
    if (::pipe(s_pipe) != 0)
        throw HelperError::systemFailure("create a pipe", errno);
    makeNonBlockingAndCloseOnExec(s_pipe[0]);
    makeNonBlockingAndCloseOnExec(s_pipe[1]);

    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : kWatchedSignals)
        ::sigaction(signalNumber, &action, nullptr);
}

Interrupts::~Interrupts()
{
    restoreDefaultDispositions();
    ::close(s_pipe[0]);
    ::close(s_pipe[1]);
    s_pipe[0] = s_pipe[1] = -1;
}

void Interrupts::restoreDefaultDispositions()
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int signalNumber : kWatchedSignals)
        ::sigaction(signalNumber, &action, nullptr);
    // The terminal editor starts with SIGPIPE's default, as it would from a shell.
    ::sigaction(SIGPIPE, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

int Interrupts::descriptor() const
{
    return s_pipe[0];
}

void Interrupts::dispatch()
{
    unsigned char byte = 0;
    while (::read(s_pipe[0], &byte, 1) == 1)
        m_interrupted(byte);
}
