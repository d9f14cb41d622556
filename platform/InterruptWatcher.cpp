#include "platform/InterruptWatcher.h"

#include "core/TarvelError.h"

#include <QSocketNotifier>

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

void makeNonBlockingAndCloseOnExec(int fd)
{
    ::fcntl(fd, F_SETFL, ::fcntl(fd, F_GETFL) | O_NONBLOCK);
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
}

} // namespace

InterruptWatcher::InterruptWatcher(QObject *parent)
    : QObject(parent)
{
    if (::pipe(s_pipe) != 0)
        throw SystemError(QStringLiteral("create a pipe"), errno);
    makeNonBlockingAndCloseOnExec(s_pipe[0]);
    makeNonBlockingAndCloseOnExec(s_pipe[1]);

    m_notifier = std::make_unique<QSocketNotifier>(s_pipe[0], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &InterruptWatcher::drainPipe);

    struct sigaction action {};
    action.sa_handler = forwardSignal;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : kWatchedSignals)
        ::sigaction(signalNumber, &action, nullptr);
}

InterruptWatcher::~InterruptWatcher()
{
    restoreDefaultDispositions();
    m_notifier.reset();
    ::close(s_pipe[0]);
    ::close(s_pipe[1]);
    s_pipe[0] = s_pipe[1] = -1;
}

void InterruptWatcher::restoreDefaultDispositions()
{
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int signalNumber : kWatchedSignals)
        ::sigaction(signalNumber, &action, nullptr);
    // The bus library ignores SIGPIPE; an editor should not inherit that.
    ::sigaction(SIGPIPE, &action, nullptr);
    sigset_t none;
    sigemptyset(&none);
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
}

void InterruptWatcher::drainPipe()
{
    unsigned char byte = 0;
    while (::read(s_pipe[0], &byte, 1) == 1)
        Q_EMIT interrupted(byte);
}
