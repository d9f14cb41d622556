#include "quicktasks/ShortProcess.h"

#include "platform/NonBlockingRead.h"
#include "quicktasks/ProcessSpawner.h"

#include <QElapsedTimer>

#include <cerrno>
#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

using namespace std::chrono_literals;

namespace ShortProcess {
namespace {

constexpr auto kPollInterval = 50ms;
constexpr auto kGraceAfterTimeOut = 200ms;
// Version texts are a line; keep a little more and drop the rest of a runaway stream.
constexpr qsizetype kOutputLimit = 1024 * 1024;

void readOutputs(SpawnedProcess &process, ShortProcessResult &result)
{
    NonBlockingRead::available(process.standardOutput, &result.standardOutput, kOutputLimit);
    NonBlockingRead::available(process.standardError, &result.standardError, kOutputLimit);
}

bool tryReap(pid_t pid, int &status)
{
    int waitStatus = 0;
    pid_t result = 0;
    do {
        result = ::waitpid(pid, &waitStatus, WNOHANG);
    } while (result < 0 && errno == EINTR);
    if (result == 0)
        return false;
    status = result == pid ? ProcessSpawner::terminationStatus(waitStatus) : 1;
    return true;
}

// Runs until the child has exited or the time is up; returns whether it exited.
bool waitForExit(SpawnedProcess &process, ShortProcessResult &result, std::chrono::milliseconds limit)
{
    QElapsedTimer clock;
    clock.start();
    while (true) {
        readOutputs(process, result);
        if (tryReap(process.processIdentifier, result.exitStatus))
            return true;
        const auto remaining = limit - std::chrono::milliseconds(clock.elapsed());
        if (remaining <= 0ms)
            return false;
        const auto wait = qMin(remaining, std::chrono::milliseconds(kPollInterval));
        if (!process.waitForOutput(wait))
            ::usleep(static_cast<useconds_t>(std::chrono::microseconds(wait).count()));
    }
}

} // namespace

ShortProcessResult run(const QString &executablePath, const QStringList &arguments,
                       const QProcessEnvironment &environment, std::chrono::milliseconds timeLimit)
{
    SpawnedProcess process =
        ProcessSpawner::spawnGroupLeader(executablePath, arguments, QString(), environment);
    ShortProcessResult result;
    if (!waitForExit(process, result, timeLimit)) {
        result.timedOut = true;
        ProcessSpawner::signalGroup(process.processIdentifier, SIGINT);
        ProcessSpawner::signalGroup(process.processIdentifier, SIGTERM);
        if (!waitForExit(process, result, kGraceAfterTimeOut)) {
            ProcessSpawner::signalGroup(process.processIdentifier, SIGKILL);
            int status = 0;
            while (::waitpid(process.processIdentifier, &status, 0) < 0 && errno == EINTR) {
            }
        }
    }
    // The exit is seen; what the child wrote before it is in the pipes. Grandchildren may
    // hold them open, so take what is there without waiting for the end.
    readOutputs(process, result);
    // After a time-out the group's other members are no longer wanted either. Only the
    // group: the leader is reaped and its number may already belong to someone else.
    if (result.timedOut)
        ::kill(-process.processIdentifier, SIGKILL);
    return result;
}

} // namespace ShortProcess
