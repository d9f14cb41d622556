#include "quicktasks/ProcessSpawner.h"

#include "core/TarvelError.h"
#include "platform/ProcessPlatform.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <csignal>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>

namespace ProcessSpawner {
namespace {

void checkPOSIX(int result, const QString &operation)
{
    if (result != 0)
        throw SystemError(operation, result);
}

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

Pipe makeOutputPipe()
{
    int descriptors[2];
    if (ProcessPlatform::makeCloseOnExecPipe(descriptors) != 0)
        throw SystemError(QStringLiteral("create process output pipe"), errno);
    Pipe pipe{FileDescriptor(descriptors[0]), FileDescriptor(descriptors[1])};
    const int flags = ::fcntl(pipe.readEnd.get(), F_GETFL);
    if (flags < 0 || ::fcntl(pipe.readEnd.get(), F_SETFL, flags | O_NONBLOCK) != 0)
        throw SystemError(QStringLiteral("create process output pipe"), errno);
    return pipe;
}

// Destroys what was initialised, on every path out.
class SpawnSetup final {
public:
    SpawnSetup()
    {
        checkPOSIX(posix_spawn_file_actions_init(&fileActions),
                   QStringLiteral("prepare process file actions"));
        m_hasFileActions = true;
        checkPOSIX(posix_spawnattr_init(&attributes), QStringLiteral("prepare process attributes"));
        m_hasAttributes = true;
    }
    ~SpawnSetup()
    {
        if (m_hasAttributes)
            posix_spawnattr_destroy(&attributes);
        if (m_hasFileActions)
            posix_spawn_file_actions_destroy(&fileActions);
    }
    SpawnSetup(const SpawnSetup &) = delete;
    SpawnSetup &operator=(const SpawnSetup &) = delete;

    posix_spawn_file_actions_t fileActions;
    posix_spawnattr_t attributes;

private:
    bool m_hasFileActions = false;
    bool m_hasAttributes = false;
};

// NUL-terminated copies that live as long as the spawn call.
class CStringArray final {
public:
    explicit CStringArray(QByteArrayList strings)
        : m_strings(std::move(strings))
    {
        m_pointers.reserve(m_strings.size() + 1);
        for (QByteArray &string : m_strings)
            m_pointers.push_back(string.data());
        m_pointers.push_back(nullptr);
    }
    char *const *data() { return m_pointers.data(); }

private:
    QByteArrayList m_strings;
    std::vector<char *> m_pointers;
};

} // namespace

SpawnedProcess spawnGroupLeader(const QString &executablePath, const QStringList &arguments,
                                const QString &workingDirectory, const QProcessEnvironment &environment)
{
    Pipe standardOutput = makeOutputPipe();
    Pipe standardError = makeOutputPipe();

    pid_t pid = 0;
    int spawnResult = 0;
    {
        SpawnSetup setup;
        const QByteArray directory = QFile::encodeName(workingDirectory);
        if (!workingDirectory.isEmpty()) {
            checkPOSIX(ProcessPlatform::addWorkingDirectoryAction(&setup.fileActions, directory.constData()),
                       QStringLiteral("set process working directory"));
        }
        checkPOSIX(posix_spawn_file_actions_adddup2(&setup.fileActions, standardOutput.writeEnd.get(),
                                                    STDOUT_FILENO),
                   QStringLiteral("route process stdout"));
        checkPOSIX(
            posix_spawn_file_actions_adddup2(&setup.fileActions, standardError.writeEnd.get(), STDERR_FILENO),
            QStringLiteral("route process stderr"));
        const std::pair<int, const char *> closes[] = {
            {standardOutput.readEnd.get(), "close child stdout read descriptor"},
            {standardError.readEnd.get(), "close child stderr read descriptor"},
            {standardOutput.writeEnd.get(), "close child stdout write descriptor"},
            {standardError.writeEnd.get(), "close child stderr write descriptor"},
        };
        for (const auto &[descriptor, operation] : closes) {
            // Only when the application itself runs without standard descriptors can a pipe
            // end be one of them; closing it then would undo the routing above.
            if (descriptor > STDERR_FILENO) {
                checkPOSIX(posix_spawn_file_actions_addclose(&setup.fileActions, descriptor),
                           QString::fromLatin1(operation));
            }
        }
        // Never the application's own input: the backends read standard input when it is
        // not a terminal and would wait for a pipe that never closes.
        checkPOSIX(
            posix_spawn_file_actions_addopen(&setup.fileActions, STDIN_FILENO, "/dev/null", O_RDONLY, 0),
            QStringLiteral("route process stdin"));

        checkPOSIX(posix_spawnattr_setflags(&setup.attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGDEF |
                                                                   POSIX_SPAWN_SETSIGMASK),
                   QStringLiteral("enable process group launch"));
        checkPOSIX(posix_spawnattr_setpgroup(&setup.attributes, 0), QStringLiteral("set process group"));
        // A parent started in the background may ignore SIGINT; the child must not inherit
        // that, or stopping it would take until SIGKILL.
        sigset_t signalSet;
        sigfillset(&signalSet);
        sigdelset(&signalSet, SIGKILL);
        sigdelset(&signalSet, SIGSTOP);
        checkPOSIX(posix_spawnattr_setsigdefault(&setup.attributes, &signalSet),
                   QStringLiteral("reset process signal handlers"));
        sigemptyset(&signalSet);
        checkPOSIX(posix_spawnattr_setsigmask(&setup.attributes, &signalSet),
                   QStringLiteral("clear process signal mask"));

        const QByteArray path = QFile::encodeName(executablePath);
        QByteArrayList argv{path};
        for (const QString &argument : arguments)
            argv.append(argument.toUtf8());
        QByteArrayList envp;
        for (const QString &entry : environment.toStringList())
            envp.append(entry.toUtf8());
        CStringArray argvCopy(std::move(argv));
        CStringArray envpCopy(std::move(envp));
        spawnResult = posix_spawn(&pid, path.constData(), &setup.fileActions, &setup.attributes,
                                  argvCopy.data(), envpCopy.data());
    }
    // The readers see end of file only once every write end is closed, ours included.
    standardOutput.writeEnd.reset();
    standardError.writeEnd.reset();
    checkPOSIX(spawnResult, QStringLiteral("start %1").arg(QFileInfo(executablePath).fileName()));

    return SpawnedProcess{pid, std::move(standardOutput.readEnd), std::move(standardError.readEnd)};
}

bool signalGroup(pid_t pid, int signal)
{
    if (pid < 1)
        return false;
    if (::kill(-pid, signal) == 0)
        return true;
    if (errno != ESRCH)
        return false;
    return ::kill(pid, signal) == 0;
}

int terminationStatus(int waitStatus)
{
    if (WIFSIGNALED(waitStatus))
        return 128 + WTERMSIG(waitStatus);
    if (WIFEXITED(waitStatus))
        return WEXITSTATUS(waitStatus);
    return 1;
}

} // namespace ProcessSpawner

bool SpawnedProcess::waitForOutput(std::chrono::milliseconds limit) const
{
    pollfd descriptors[2];
    nfds_t count = 0;
    for (const FileDescriptor *descriptor : {&standardOutput, &standardError}) {
        if (descriptor->isValid())
            descriptors[count++] = pollfd{descriptor->get(), POLLIN, 0};
    }
    if (count == 0)
        return false;
    ::poll(descriptors, count, static_cast<int>(limit.count()));
    return true;
}
