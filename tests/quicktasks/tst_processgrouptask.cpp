// The process-group runner against real child processes: the fake backends, sh and perl.
#include "backends/BackendProfiles.h"
#include "core/TarvelError.h"
#include "fakebackends/FakeBackends.h"
#include "quicktasks/ProcessGroupTask.h"
#include "quicktasks/QuickTaskOutputHandler.h"
#include "quicktasks/StandardInput.h"
#include "support/TestEnvironment.h"

#include <QSignalSpy>
#include <QtTest>

#include <csignal>
#include <memory>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kExitTimeout = 10000;

// A task of one fake backend, its output collected as lines by a quick-task handler.
struct FakeRun {
    FakeRun(const FakeBackends &fakes, QuickTaskCLIBackend backend, const QStringList &steps,
            const QString &workingDirectory = QDir::tempPath())
        : handler(backend)
    {
        QProcessEnvironment environment;
        environment.insert(QStringLiteral("PATH"), fakes.searchPath());
        environment.insert(QStringLiteral("FAKE_RECORD_DIR"), fakes.recordDirectory());
        environment.insert(QStringLiteral("FAKE_STEPS"), fakes.writeSteps(steps));
        const QString name = BackendProfiles::of(backend).rawValue();
        task = std::make_unique<ProcessGroupTask>(fakes.executable(name), QStringList{QStringLiteral("run")},
                                                  workingDirectory, environment);
        QObject::connect(task.get(), &ProcessGroupTask::standardOutputReceived, task.get(),
                         [this](const QByteArray &bytes) {
                             log += handler.consume(OutputStream::standardOutput, bytes).rawLogText;
                         });
        QObject::connect(task.get(), &ProcessGroupTask::standardErrorReceived, task.get(),
                         [this](const QByteArray &bytes) {
                             log += handler.consume(OutputStream::standardError, bytes).rawLogText;
                         });
        QObject::connect(task.get(), &ProcessGroupTask::finished, task.get(), [this](int status) {
            log += handler.finish().rawLogText;
            exitStatuses.append(status);
        });
    }

    bool waitForExit(int timeout = kExitTimeout)
    {
        return QTest::qWaitFor([this] { return !exitStatuses.isEmpty(); }, timeout);
    }

    QuickTaskOutputHandler handler;
    std::unique_ptr<ProcessGroupTask> task;
    QByteArray log;
    QList<int> exitStatuses;
};

// Swaps our own standard input for the read end of a pipe that nobody closes, the way a
// launcher can leave it, and puts the original back afterwards.
class PipeOnStandardInput final {
public:
    PipeOnStandardInput()
    {
        m_saved = ::dup(STDIN_FILENO);
        if (::pipe(m_pipe) == 0)
            ::dup2(m_pipe[0], STDIN_FILENO);
    }
    ~PipeOnStandardInput()
    {
        ::dup2(m_saved, STDIN_FILENO);
        ::close(m_saved);
        ::close(m_pipe[0]);
        ::close(m_pipe[1]);
    }
    PipeOnStandardInput(const PipeOnStandardInput &) = delete;
    PipeOnStandardInput &operator=(const PipeOnStandardInput &) = delete;

private:
    int m_saved = -1;
    int m_pipe[2] = {-1, -1};
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
    void exitStatusIsTheCodeOrTheSignalPlus128_data()
    {
        QTest::addColumn<QString>("step");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("ignoreInterruptsHere");
        // Exit codes and the other signals are seen through whole tasks in tst_quicktaskmanager.
        QTest::newRow("failure") << QStringLiteral("exit 3") << 3 << false;
        QTest::newRow("SIGINT") << QStringLiteral("kill INT") << 130 << false;
        // A shell starts background jobs with SIGINT ignored; the child must not inherit that.
        QTest::newRow("SIGINT while we ignore it") << QStringLiteral("kill INT") << 130 << true;
    }
    void exitStatusIsTheCodeOrTheSignalPlus128()
    {
        QFETCH(QString, step);
        QFETCH(int, status);
        QFETCH(bool, ignoreInterruptsHere);
        struct sigaction ignore {};
        struct sigaction saved {};
        ignore.sa_handler = SIG_IGN;
        if (ignoreInterruptsHere)
            ::sigaction(SIGINT, &ignore, &saved);
        const auto restore = qScopeGuard([&] {
            if (ignoreInterruptsHere)
                ::sigaction(SIGINT, &saved, nullptr);
        });
        FakeBackends fakes;
        FakeRun run(fakes, QuickTaskCLIBackend::claude, {step});
        QVERIFY(!run.task->hasStarted());
        run.task->run();
        QVERIFY(run.task->hasStarted());
        QVERIFY(run.task->processIdentifier() > 0);
        QVERIFY(run.waitForExit());
        QCOMPARE(run.exitStatuses, QList<int>{status});
        QCOMPARE(run.task->terminationStatus(), status);
        QVERIFY(run.task->hasExited());
        // Signalling after the exit does nothing.
        QVERIFY(!run.task->signalGroup(SIGTERM));
        QTest::qWait(50);
        QCOMPARE(run.exitStatuses.size(), 1);
    }

    void failedStartNamesTheProgramAndReportsNothing_data()
    {
        QTest::addColumn<QString>("executable");
        QTest::addColumn<QString>("workingDirectory");
        QTest::addColumn<QString>("message");
        QTest::newRow("missing working directory")
            << QStringLiteral("claude") << QStringLiteral("/nonexistent/folder")
            << QStringLiteral("Could not start claude: No such file or directory");
        QTest::newRow("missing executable")
            << QStringLiteral("not-there") << QString()
            << QStringLiteral("Could not start not-there: No such file or directory");
    }
    void failedStartNamesTheProgramAndReportsNothing()
    {
        QFETCH(QString, executable);
        QFETCH(QString, workingDirectory);
        QFETCH(QString, message);
        FakeBackends fakes;
        ProcessGroupTask task(fakes.executable(executable), {}, workingDirectory, QProcessEnvironment());
        QSignalSpy finished(&task, &ProcessGroupTask::finished);
        try {
            task.run();
            QFAIL("the start should have failed");
        } catch (const SystemError &error) {
            QCOMPARE(error.description(), message);
        }
        QVERIFY(!task.hasStarted());
        QCOMPARE(task.processIdentifier(), 0);
        QVERIFY(!task.signalGroup(SIGKILL));
        QTest::qWait(100);
        QCOMPARE(finished.count(), 0);
    }

    void bulkOutputArrivesComplete()
    {
        FakeBackends fakes;
        // About 3.4 MB in one go: more than a pipe holds and more than one read per wake-up.
        ProcessGroupTask task(QStringLiteral("/bin/sh"),
                              {QStringLiteral("-c"), QStringLiteral("yes 0123456789abcdef | head -n 200000")},
                              QString(), QProcessEnvironment::systemEnvironment());
        QuickTaskOutputHandler handler(QuickTaskCLIBackend::claude);
        connect(&task, &ProcessGroupTask::standardOutputReceived, this, [&handler](const QByteArray &bytes) {
            handler.consume(OutputStream::standardOutput, bytes);
        });
        QSignalSpy finished(&task, &ProcessGroupTask::finished);
        task.run();
        QVERIFY(finished.wait(kExitTimeout));
        handler.finish();
        const QString response = handler.finalResponse().value_or(QString());
        QCOMPARE(response.count(u'\n'), 200000 - 1);
        QVERIFY(response.endsWith(QStringLiteral("\n0123456789abcdef")));
    }

    void groupSignalReachesAGrandchildWhileTheLeaderRuns()
    {
        FakeBackends fakes;
        // The grandchild is started before the leader ignores SIGTERM, so only it dies of it.
        FakeRun run(fakes, QuickTaskCLIBackend::opencode,
                    {QStringLiteral("grandchild"), QStringLiteral("ignore-stop-signals"),
                     QStringLiteral("ready"), QStringLiteral("hang")});
        run.task->run();
        QVERIFY(QTest::qWaitFor([&] { return fakes.isReady(); }, kExitTimeout));
        const std::optional<pid_t> grandchild = fakes.grandchildProcessIdentifier();
        QVERIFY(grandchild);

        QVERIFY(run.task->signalGroup(SIGTERM));
        QVERIFY(QTest::qWaitFor([&] { return !isProcessAlive(*grandchild); }, 5000));
        QVERIFY(run.task->isRunning());
        QVERIFY(run.task->signalGroup(SIGKILL));
        QVERIFY(run.waitForExit());
        QCOMPARE(run.exitStatuses, QList<int>{137});
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

    void destroyingARunningTaskKillsItsGroup()
    {
        FakeBackends fakes;
        auto run = std::make_unique<FakeRun>(fakes, QuickTaskCLIBackend::codex,
                                             QStringList{QStringLiteral("ignore-stop-signals"),
                                                         QStringLiteral("grandchild"),
                                                         QStringLiteral("ready"), QStringLiteral("hang")});
        run->task->run();
        QVERIFY(QTest::qWaitFor([&] { return fakes.isReady(); }, kExitTimeout));
        const pid_t leader = run->task->processIdentifier();
        const std::optional<pid_t> grandchild = fakes.grandchildProcessIdentifier();
        QVERIFY(grandchild);
        run.reset();
        QVERIFY(!isProcessAlive(leader));
        QVERIFY(QTest::qWaitFor([&] { return !isProcessAlive(*grandchild); }, 2000));
    }

    void childrenNeverReadOurStandardInput()
    {
        FakeBackends fakes;
        PipeOnStandardInput pipe;
        FakeRun run(fakes, QuickTaskCLIBackend::opencode,
                    {QStringLiteral("read-stdin"), QStringLiteral("exit 0")});
        run.task->run();
        const bool exited = run.waitForExit(5000);
        if (!exited)
            run.task->signalGroup(SIGKILL);
        QVERIFY2(exited, "the child waited for our standard input");
        QVERIFY(run.log.contains("[stdout] stdin closed\n"));
    }

    void standardInputRedirectsToTheNullDeviceOnce()
    {
        PipeOnStandardInput pipe;
        QVERIFY(!standardInputIsNullDevice());
        QVERIFY(StandardInput::redirectToNullDevice());
        QVERIFY(standardInputIsNullDevice());
        QVERIFY(!StandardInput::redirectToNullDevice());
    }
};

QTEST_GUILESS_MAIN(ProcessGroupTaskTest)
#include "tst_processgrouptask.moc"
