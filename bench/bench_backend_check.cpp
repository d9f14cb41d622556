// What a scratch composer and a task start wait for before a backend can be used, before a
// version check has passed (a fresh data folder) and after (the same executables again):
//   the availability check of all three backends (the composer is ready when it returns);
//   submit -> backend started: resolve and check the backend, then spawn it in its process group.
// With the fake backends of the tests, and with the real tools when TARVEL_REAL_TOOLS_DIR (see
// `make real-tools`) holds them. The user's SHELL is asked for its PATH once, as the application
// does, so only the first check of a run pays for it.
//
//   bin/bench_backend_check
#include "BenchStatistics.h"
#include "quicktasks/ProcessGroupTask.h"
#include "quicktasks/TaskCLIExecutableLocator.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <functional>
#include <memory>

namespace {

constexpr int kRuns = 10;

double millisecondsOf(const std::function<void()> &work)
{
    QElapsedTimer clock;
    clock.start();
    work();
    return double(clock.nsecsElapsed()) / 1e6;
}

// A fresh data folder: nothing has been checked yet.
std::unique_ptr<QTemporaryDir> freshDataFolder()
{
    auto folder = std::make_unique<QTemporaryDir>();
    qputenv("XDG_DATA_HOME", folder->path().toLocal8Bit());
    return folder;
}

int availableCount(const QuickTaskCLIInstallationAvailabilities &availabilities)
{
    int count = 0;
    for (const QuickTaskCLIInstallationAvailability &availability : availabilities)
        count += availability.isAvailable() ? 1 : 0;
    return count;
}

// Resolve, check, then run the backend until posix_spawn has executed it (timed); then stop it.
double startBackend(QuickTaskCLIBackend backend)
{
    QElapsedTimer clock;
    clock.start();
    const QuickTaskLaunchTarget target = TaskCLIExecutableLocator::launchTarget(backend);
    ProcessGroupTask task(target.executablePath, {QStringLiteral("exec"), QStringLiteral("--help")},
                          QDir::tempPath(), target.environment);
    task.run();
    const double elapsed = double(clock.nsecsElapsed()) / 1e6;
    QEventLoop loop;
    QObject::connect(&task, &ProcessGroupTask::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(5000, &loop, &QEventLoop::quit);
    task.stop(StopSchedules::promptRewrite());
    if (!task.hasExited())
        loop.exec();
    return elapsed;
}

void measure(const char *tools, QuickTaskCLIBackend started)
{
    QList<double> coldChecks, warmChecks, coldStarts, warmStarts;
    int available = 0;
    for (int run = 0; run < kRuns; ++run) {
        const auto folder = freshDataFolder();
        coldChecks.append(millisecondsOf([&] {
            available = availableCount(TaskCLIExecutableLocator::checkInstallationAvailabilities());
        }));
        warmChecks.append(
            millisecondsOf([] { TaskCLIExecutableLocator::checkInstallationAvailabilities(); }));
    }
    for (int run = 0; run < kRuns; ++run) {
        const auto folder = freshDataFolder();
        coldStarts.append(startBackend(started));
        warmStarts.append(startBackend(started));
    }
    std::printf("%s (%d of 3 available; SHELL=%s)\n", tools, available, qgetenv("SHELL").constData());
    std::printf("  %-42s %8.2f ms\n", "first availability check (asks the shell)", coldChecks.takeFirst());
    BenchStatistics::of(coldChecks).print("  availability check, nothing checked yet");
    BenchStatistics::of(warmChecks).print("  availability check, checks passed before");
    BenchStatistics::of(coldStarts).print("  submit -> backend started, not checked yet");
    BenchStatistics::of(warmStarts).print("  submit -> backend started, checked before");
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QByteArray path = qgetenv("PATH");
    for (const char *name : {"CODEX_BIN_PATH", "CLAUDE_BIN_PATH", "OPENCODE_BIN_PATH", "FAKE_RECORD_DIR"})
        qunsetenv(name);

    qputenv("PATH", QByteArray(TARVEL_FAKE_BACKENDS_DIR) + ':' + path);
    measure("fake backends", QuickTaskCLIBackend::claude);

    const QString realTools =
        QDir(qEnvironmentVariable("TARVEL_REAL_TOOLS_DIR")).filePath(QStringLiteral("node_modules/.bin"));
    if (!qEnvironmentVariableIsEmpty("TARVEL_REAL_TOOLS_DIR") && QFileInfo(realTools).isDir()) {
        qputenv("PATH", QFile::encodeName(realTools) + ':' + path);
        measure("real tools", QuickTaskCLIBackend::claude);
    } else {
        std::printf("real tools: TARVEL_REAL_TOOLS_DIR does not hold them (make real-tools)\n");
    }
    return 0;
}
