// What a scratch composer and a task start wait for before a backend can be used, before a
// version check has passed (a fresh data folder) and after (the same executables again):
//   the availability check of all three backends;
//   scratch composer shown -> ready to type (claude chosen, checked before), when it waits for
//   every backend's check and when it is ready at its own backend's pass (what it does), also
//   with an opencode that does not answer its version query (as a slow one under load does not);
//   submit -> backend started: resolve and check the backend, then spawn it in its process group.
// With the fake backends of the tests, and with the real tools when TARVEL_REAL_TOOLS_DIR (see
// `make real-tools`) holds them. The user's SHELL is asked for its PATH once, as the application
// does, so only the first check of a run pays for it.
//
//   bin/bench_backend_check
#include "BenchStatistics.h"
#include "composer/ScratchComposer.h"
#include "core/UserDefaults.h"
#include "quicktasks/ProcessGroupTask.h"
#include "quicktasks/TaskCLIExecutableLocator.h"
#include "settings/AppSettings.h"

#include <QApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QFileInfo>
#include <QTemporaryDir>
#include <QThreadPool>
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

// A scratch composer with claude chosen, shown: the time until it can be typed in.
double composerReady(const QTemporaryDir &folder, bool waitForEveryBackend)
{
    UserDefaults defaults(folder.filePath(QStringLiteral("settings.conf")));
    AppSettings(defaults).setQuickTaskCLIBackend(QuickTaskCLIBackend::claude);
    ComposerServices services;
    services.defaults = &defaults;
    if (waitForEveryBackend)
        services.checkInstallations = [](QuickTaskCLIBackend) {
            return TaskCLIExecutableLocator::installationAvailabilities();
        };
    QElapsedTimer clock;
    clock.start();
    ScratchComposer composer(QString(), {}, services);
    QEventLoop loop;
    QObject::connect(&composer, &ScratchComposer::availabilityChanged, &loop, &QEventLoop::quit);
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    composer.showWindow();
    loop.exec();
    const double elapsed = double(clock.nsecsElapsed()) / 1e6;
    if (!composer.availability().isReady())
        std::printf("  (the composer is not ready: %s)\n", qPrintable(composer.availability().title));
    composer.closeProgrammatically();
    // The check goes on in the background after the composer is ready; let it end before the next run.
    QThreadPool::globalInstance()->waitForDone();
    return elapsed;
}

void measureComposer(int runs)
{
    QList<double> everyBackend, ownBackend;
    const auto folder = freshDataFolder();
    TaskCLIExecutableLocator::checkInstallationAvailabilities();
    for (int run = 0; run < runs; ++run) {
        everyBackend.append(composerReady(*folder, true));
        ownBackend.append(composerReady(*folder, false));
    }
    BenchStatistics::of(everyBackend).print("  composer ready, waiting for every backend");
    BenchStatistics::of(ownBackend).print("  composer ready, at its own backend's pass");
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
    measureComposer(kRuns);
    // The fake opencode, asked for its version, never answers: the check gives up after 2 s.
    qputenv("OPENCODE_BIN_PATH", TARVEL_FAKE_BACKENDS_DIR "/opencode");
    qputenv("FAKE_OPENCODE_VERSION_HANG", "1");
    std::printf("  with an opencode that does not answer:\n");
    measureComposer(3);
    qunsetenv("OPENCODE_BIN_PATH");
    qunsetenv("FAKE_OPENCODE_VERSION_HANG");
    BenchStatistics::of(coldStarts).print("  submit -> backend started, not checked yet");
    BenchStatistics::of(warmStarts).print("  submit -> backend started, checked before");
}

} // namespace

int main(int argc, char *argv[])
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication application(argc, argv);
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
