#include "quicktasks/ProcessGroupTask.h"

#include "quicktasks/ProcessSpawner.h"

#include <QTimer>

#include <cerrno>
#include <csignal>
#include <utility>

#include <sys/wait.h>

using namespace std::chrono_literals;

namespace StopSchedules {

const StopSchedule &quickTask()
{
    static const StopSchedule schedule{{0ms, SIGINT}, {600ms, SIGTERM}, {2000ms, SIGKILL}};
    return schedule;
}

const StopSchedule &promptRewrite()
{
    static const StopSchedule schedule{{0ms, SIGINT}, {0ms, SIGTERM}, {600ms, SIGKILL}};
    return schedule;
}

} // namespace StopSchedules

ProcessGroupTask::ProcessGroupTask(QString executablePath, QStringList arguments, QString currentDirectory,
                                   QProcessEnvironment environment, QObject *parent)
    : QObject(parent)
    , m_executablePath(std::move(executablePath))
    , m_arguments(std::move(arguments))
    , m_currentDirectory(std::move(currentDirectory))
    , m_environment(std::move(environment))
{
}

ProcessGroupTask::~ProcessGroupTask()
{
    // Nobody will read its output or stop it any more; don't leave the group behind.
    signalGroup(SIGKILL);
    // The waiter may be posting its exit to this object; it must be done before QObject's
    // destructor drops the posted events.
    if (m_waiter.joinable())
        m_waiter.join();
}

void ProcessGroupTask::run()
{
    {
        std::lock_guard lock(m_stateLock);
        Q_ASSERT(!m_hasStarted);
        if (m_hasStarted)
            return;
    }
    SpawnedProcess process =
        ProcessSpawner::spawnGroupLeader(m_executablePath, m_arguments, m_currentDirectory, m_environment);

    m_standardOutput = std::make_unique<PipeReader>(std::move(process.standardOutput));
    m_standardError = std::make_unique<PipeReader>(std::move(process.standardError));
    connect(m_standardOutput.get(), &PipeReader::dataRead, this, &ProcessGroupTask::standardOutputReceived);
    connect(m_standardError.get(), &PipeReader::dataRead, this, &ProcessGroupTask::standardErrorReceived);

    {
        std::lock_guard lock(m_stateLock);
        m_processIdentifier = process.processIdentifier;
        m_hasStarted = true;
    }
    m_waiter = std::thread([this] { waitForExit(); });
}

qint32 ProcessGroupTask::processIdentifier() const
{
    std::lock_guard lock(m_stateLock);
    return m_processIdentifier;
}

qint32 ProcessGroupTask::terminationStatus() const
{
    std::lock_guard lock(m_stateLock);
    return m_terminationStatus;
}

bool ProcessGroupTask::hasStarted() const
{
    std::lock_guard lock(m_stateLock);
    return m_hasStarted;
}

bool ProcessGroupTask::hasExited() const
{
    std::lock_guard lock(m_stateLock);
    return m_hasExited;
}

bool ProcessGroupTask::isRunning() const
{
    std::lock_guard lock(m_stateLock);
    return m_hasStarted && !m_hasExited;
}

bool ProcessGroupTask::signalGroup(int signal)
{
    // Holding the lock keeps the waiter from reaping the pid while we signal it, so the
    // number cannot have been handed to an unrelated process in between.
    std::lock_guard lock(m_stateLock);
    if (!m_hasStarted || m_hasExited)
        return false;
    return ProcessSpawner::signalGroup(m_processIdentifier, signal);
}

void ProcessGroupTask::stop(const StopSchedule &schedule)
{
    if (m_stopRequested)
        return;
    m_stopRequested = true;
    for (const StopStep &step : schedule) {
        if (step.delay <= 0ms) {
            signalGroup(step.signal);
            continue;
        }
        auto *timer = new QTimer(this);
        timer->setSingleShot(true);
        timer->setInterval(step.delay);
        connect(timer, &QTimer::timeout, this, [this, signal = step.signal] { signalGroup(signal); });
        timer->start();
        m_stopTimers.append(timer);
    }
}

void ProcessGroupTask::waitForExit()
{
    const pid_t pid = processIdentifier();
    if (pid < 1)
        return;
    // WNOWAIT leaves the child a zombie, so its pid stays reserved until we have marked
    // it exited under the lock; only then is it reaped.
    siginfo_t info{};
    int result = 0;
    do {
        result = ::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT);
    } while (result != 0 && errno == EINTR);

    // The leader is a zombie now, so its number still names the group.
    if (result == 0 && m_stopRequested)
        ::kill(-pid, SIGKILL);

    int status = 1;
    {
        std::lock_guard lock(m_stateLock);
        if (result == 0) {
            int waitStatus = 0;
            pid_t reaped = 0;
            do {
                reaped = ::waitpid(pid, &waitStatus, 0);
            } while (reaped < 0 && errno == EINTR);
            if (reaped == pid)
                status = ProcessSpawner::terminationStatus(waitStatus);
        }
        m_terminationStatus = status;
        m_hasExited = true;
    }
    QMetaObject::invokeMethod(
        this, [this] { handleExit(); }, Qt::QueuedConnection);
}

bool ProcessGroupTask::finishIfExited()
{
    if (!m_exitDelivered && hasExited())
        handleExit();
    return m_exitDelivered;
}

void ProcessGroupTask::handleExit()
{
    if (m_exitDelivered)
        return;
    m_exitDelivered = true;
    for (QTimer *timer : std::as_const(m_stopTimers))
        timer->stop();
    // What the child wrote before it exited is in the pipes now. Grandchildren may keep
    // the write ends open for much longer, so read what is there and stop.
    m_standardOutput->drain();
    m_standardError->drain();
    m_standardOutput->close();
    m_standardError->close();
    Q_EMIT finished(terminationStatus());
}
