#pragma once

#include "quicktasks/PipeReader.h"

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

class QTimer;

// One signal of a stop, sent this long after the stop was asked for, and only if the
// process is still running then.
struct StopStep {
    std::chrono::milliseconds delay;
    int signal;
};
using StopSchedule = QList<StopStep>;

namespace StopSchedules {
// A quick task: SIGINT at once, SIGTERM after 0.6 s, SIGKILL after 2.0 s.
const StopSchedule &quickTask();
// A prompt rewrite: SIGINT and SIGTERM at once, SIGKILL after 0.6 s.
const StopSchedule &promptRewrite();
} // namespace StopSchedules

// A backend process started as the leader of a new process group, so that a stop
// reaches everything it starts in turn. Standard output and standard error arrive as
// signals on this object's thread; a thread of its own waits for the exit.
//
// Order of signals: output chunks as they are read; at exit, everything the pipes still
// hold; then finished() once. A task is started at most once; a failed start emits
// nothing. Don't delete the task from one of its own signals (use deleteLater()).
// Destroying a task whose process still runs kills the process group.
class ProcessGroupTask final : public QObject {
    Q_OBJECT

public:
    ProcessGroupTask(QString executablePath, QStringList arguments, QString currentDirectory,
                     QProcessEnvironment environment, QObject *parent = nullptr);
    ~ProcessGroupTask() override;

    const QString &executablePath() const noexcept { return m_executablePath; }
    const QStringList &arguments() const noexcept { return m_arguments; }
    const QString &currentDirectory() const noexcept { return m_currentDirectory; }
    const QProcessEnvironment &environment() const noexcept { return m_environment; }

    // Starts the child. Throws SystemError ("Could not start codex: No such file or
    // directory") and leaves the task unstarted.
    void run();

    // Thread-safe.
    qint32 processIdentifier() const;
    // The exit code, or 128 + the signal that ended the process; 0 until it has exited.
    qint32 terminationStatus() const;
    bool hasStarted() const;
    bool hasExited() const;
    bool isRunning() const;

    // Signals the whole group (the process alone when the group is gone). Does nothing and
    // returns false unless the process is running.
    bool signalGroup(int signal);
    // Sends the steps of schedule in turn while the process runs; a second stop is ignored.
    // When the process exits after a stop, what it leaves behind in its group is killed:
    // background children of a shell ignore SIGINT and would otherwise outlive the task.
    void stop(const StopSchedule &schedule);
    bool stopRequested() const noexcept { return m_stopRequested; }

    // For a caller that cannot go back to the event loop (the application is exiting):
    // once the process has exited, emits what the pipes still hold and finished() now
    // instead of from the event loop. True when finished() has been emitted, now or before.
    bool finishIfExited();

Q_SIGNALS:
    void standardOutputReceived(const QByteArray &bytes);
    void standardErrorReceived(const QByteArray &bytes);
    void finished(int terminationStatus);

private:
    void waitForExit();
    void handleExit();

    const QString m_executablePath;
    const QStringList m_arguments;
    const QString m_currentDirectory;
    const QProcessEnvironment m_environment;

    std::unique_ptr<PipeReader> m_standardOutput;
    std::unique_ptr<PipeReader> m_standardError;
    std::thread m_waiter;
    QList<QTimer *> m_stopTimers;
    std::atomic<bool> m_stopRequested = false;
    bool m_exitDelivered = false;

    mutable std::mutex m_stateLock;
    bool m_hasStarted = false;
    bool m_hasExited = false;
    qint32 m_processIdentifier = 0;
    qint32 m_terminationStatus = 0;
};
