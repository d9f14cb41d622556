#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <chrono>

// A short helper command (a version query, the login shell's PATH) run to completion on
// the calling thread, which must not be the main thread: it blocks for up to
// timeLimit + 0.2 s.
struct ShortProcessResult {
    bool timedOut = false;
    // The exit code or 128 + signal; meaningless after a time-out.
    int exitStatus = 0;
    QByteArray standardOutput;
    QByteArray standardError;
};

namespace ShortProcess {

// Starts the executable in a process group of its own and polls every 0.05 s. Past
// timeLimit the group gets SIGINT and SIGTERM and 0.2 s more; whatever is left then is
// killed and reaped, so nothing outlives the call. Throws SystemError when it cannot start.
ShortProcessResult run(const QString &executablePath, const QStringList &arguments,
                       const QProcessEnvironment &environment, std::chrono::milliseconds timeLimit);

} // namespace ShortProcess
