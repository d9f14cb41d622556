#pragma once

#include "platform/FileDescriptor.h"

#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <QByteArray>

#include <chrono>
#include <limits>

#include <sys/types.h>

// A child started as the leader of a new process group, with the read ends of its
// standard output and standard error pipes (non-blocking, close-on-exec).
struct SpawnedProcess {
    pid_t processIdentifier = 0;
    FileDescriptor standardOutput;
    FileDescriptor standardError;

    // Waits up to limit for either pipe to have something; false at once when both are closed.
    bool waitForOutput(std::chrono::milliseconds limit) const;
};

namespace ProcessSpawner {

// Starts executablePath directly (no PATH search) with argv[0] = the full path, the
// given environment as its whole environment, standard input from /dev/null, default
// signal dispositions and an empty signal mask. An empty workingDirectory keeps ours.
// Throws SystemError, worded "Could not <operation>: <system error text>".
SpawnedProcess spawnGroupLeader(const QString &executablePath, const QStringList &arguments,
                                const QString &workingDirectory, const QProcessEnvironment &environment);

// Sends signal to the process group led by pid, or to pid alone when the group is gone.
// Returns false when neither exists.
bool signalGroup(pid_t pid, int signal);

// waitpid's status as one number: the exit code, or 128 + the signal that ended it.
int terminationStatus(int waitStatus);

} // namespace ProcessSpawner
