// The process-group runner against real child processes of sh and perl.
#include "core/TarvelError.h"
#include "quicktasks/ProcessGroupTask.h"
#include "quicktasks/StandardInput.h"
#include "support/fakebackends/ProcessAlive.h"

#include <QSignalSpy>
#include <QtTest>

#include <csignal>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kExitTimeout = 10000;

// A task of sh -c SCRIPT in its own group, its output and exit statuses collected.
struct ShellRun {
    explicit ShellRun(const QString &script)
        : task(std::make_unique<ProcessGroupTask>(QStringLiteral("/bin/sh"),
                                                  QStringList{QStringLiteral("-c"), script}, QString(),
                                                  QProcessEnvironment::systemEnvironment()))
    {
        QObject::connect(task.get(), &ProcessGroupTask::standardOutputReceived, task.get(),
                         [this](const QByteArray &bytes) { output += bytes; });
        QObject::connect(task.get(), &ProcessGroupTask::finished, task.get(),
                         [this](int status) { exitStatuses.append(status); });
    }

    bool waitForExit(int timeout = kExitTimeout)
    {
        return QTest::qWaitFor([this] { return !exitStatuses.isEmpty(); }, timeout);
    }

    std::unique_ptr<ProcessGroupTask> task;
    QByteArray output;
    QList<int> exitStatuses;
};

bool standardInputIsNullDevice()
{
    struct stat nullDevice {};
    struct stat current {};
    return ::stat("/dev/null", &nullDevice) == 0 && ::fstat(STDIN_FILENO, &current) == 0 &&
           S_ISCHR(current.st_mode) && current.st_rdev == nullDevice.st_rdev;
}

} // namespace

class ProcessGroupTaskTest final : public QObject {
    Q_OBJECT

private Q_SLOTS:
    // A shell starts background jobs with SIGINT ignored; the child must not inherit that. Exit
    // codes and the other signals are seen through whole tasks in tst_quicktaskmanager.
    void childDiesOfSIGINTEvenWhenWeIgnoreIt()
    {
        struct sigaction ignore {};
        struct sigaction saved {};
        ignore.sa_handler = SIG_IGN;
        ::sigaction(SIGINT, &ignore, &saved);
        const auto restore = qScopeGuard([&] { ::sigaction(SIGINT, &saved, nullptr); });
        ShellRun run(QStringLiteral("kill -INT $$; exit 0"));
        QVERIFY(!run.task->hasStarted());
        run.task->run();
        QVERIFY(run.task->hasStarted());
        QVERIFY(run.waitForExit());
        QCOMPARE(run.exitStatuses, QList<int>{130});
        QCOMPARE(run.task->terminationStatus(), 130);
        QVERIFY(run.task->hasExited());
        // Signalling after the exit does nothing.
        QVERIFY(!run.task->signalGroup(SIGTERM));
        QTest::qWait(50);
        QCOMPARE(run.exitStatuses.size(), 1);
    }

    // A missing working folder or program: the error names the program, nothing else happens.
    void failedStartNamesTheProgramAndReportsNothing()
    {
        for (const auto &[executable, workingDirectory, name] :
             {std::tuple{"/bin/sh", "/nonexistent/folder", "sh"},
              std::tuple{"/nonexistent/not-there", "", "not-there"}}) {
            ProcessGroupTask task(QString::fromLatin1(executable), {}, QString::fromLatin1(workingDirectory),
                                  QProcessEnvironment());
            QSignalSpy finished(&task, &ProcessGroupTask::finished);
            try {
                task.run();
                QFAIL("the start should have failed");
            } catch (const SystemError &error) {
                QCOMPARE(
                    error.description(),
                    QStringLiteral("Could not start %1: No such file or directory").arg(QLatin1String(name)));
            }
            QVERIFY(!task.hasStarted());
            QCOMPARE(task.processIdentifier(), 0);
            QVERIFY(!task.signalGroup(SIGKILL));
            QTest::qWait(100);
            QCOMPARE(finished.count(), 0);
        }
    }

    void bulkOutputArrivesComplete()
    {
        // About 3.4 MB in one go: more than a pipe holds and more than one read per wake-up.
        ShellRun run(QStringLiteral("yes 0123456789abcdef | head -n 200000"));
        run.task->run();
        QVERIFY(run.waitForExit());
        QCOMPARE(run.output, QByteArray("0123456789abcdef\n").repeated(200000));
    }

    void signalFallsBackToTheProcessWhenItsGroupIsGone()
    {
        // The child moves itself into our process group, so its own group no longer exists.
        ProcessGroupTask task(
            QStringLiteral("/usr/bin/perl"),
            {QStringLiteral("-e"),
             QStringLiteral("$| = 1; setpgrp(0, getpgrp(getppid())) or die; print qq(moved\\n); "
                            "sleep 30;")},
            QString(), QProcessEnvironment::systemEnvironment());
        QByteArray output;
        connect(&task, &ProcessGroupTask::standardOutputReceived, this,
                [&output](const QByteArray &bytes) { output += bytes; });
        QSignalSpy finished(&task, &ProcessGroupTask::finished);
        task.run();
        QVERIFY(QTest::qWaitFor([&] { return output.contains("moved"); }, kExitTimeout));
        QCOMPARE(::kill(-task.processIdentifier(), 0), -1);
        QVERIFY(task.signalGroup(SIGTERM));
        QVERIFY(finished.wait(kExitTimeout));
        QCOMPARE(finished.constFirst().constFirst().toInt(), 143);
    }

    // Its child ignores SIGINT and SIGTERM too: only the group's SIGKILL reaches it.
    void destroyingARunningTaskKillsItsGroup()
    {
        auto run = std::make_unique<ShellRun>(
            QStringLiteral("trap '' INT TERM; sleep 300 & echo \"$!\"; while :; do sleep 1; done"));
        run->task->run();
        QVERIFY(QTest::qWaitFor([&] { return run->output.endsWith('\n'); }, kExitTimeout));
        const pid_t leader = run->task->processIdentifier();
        const pid_t child = run->output.trimmed().toInt();
        QVERIFY(child > 0);
        run.reset();
        QVERIFY(!isProcessAlive(leader));
        QVERIFY(QTest::qWaitFor([&] { return !isProcessAlive(child); }, 2000));
    }

    // Behind a pipe nobody closes on our standard input, a child gets none to wait for; then ours
    // is redirected to the null device, once.
    void standardInputIsNeverWaitedFor()
    {
        // Our standard input becomes the read end of a pipe that nobody closes, the way a launcher
        // can leave it; the original comes back afterwards.
        const int saved = ::dup(STDIN_FILENO);
        int pipe[2] = {-1, -1};
        QVERIFY(::pipe(pipe) == 0 && ::dup2(pipe[0], STDIN_FILENO) == STDIN_FILENO);
        const auto restore = qScopeGuard([&] {
            ::dup2(saved, STDIN_FILENO);
            for (const int descriptor : {saved, pipe[0], pipe[1]})
                ::close(descriptor);
        });
        ShellRun run(QStringLiteral("cat > /dev/null; echo stdin closed"));
        run.task->run();
        const bool exited = run.waitForExit(5000);
        if (!exited)
            run.task->signalGroup(SIGKILL);
        QVERIFY2(exited, "the child waited for our standard input");
        QCOMPARE(run.output, QByteArray("stdin closed\n"));

        QVERIFY(!standardInputIsNullDevice());
        QVERIFY(StandardInput::redirectToNullDevice());
        QVERIFY(standardInputIsNullDevice());
        QVERIFY(!StandardInput::redirectToNullDevice());
    }
};

QTEST_GUILESS_MAIN(ProcessGroupTaskTest)
#include "tst_processgrouptask.moc"
