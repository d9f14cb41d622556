// The application's latency and idle cost on a real desktop, over 20 editor requests:
//   helper start -> composer mapped, and Ctrl+Return -> helper exit (median, min, max);
//   the tray menu's "Quick Tasks" and "Preferences…" chosen -> the window mapped, the first time
//   and then;
//   then, with nothing to do and every window closed, the application's wake-ups per second and
//   resident memory (and its resident memory once launched, before the runs).
//
// Run it on the headless desktop, from the build folder:
//   ../tests/e2e/desktop-session.sh --probe bin/tarvel-desktop-probe -- bin/bench_app
#include "BenchDesktop.h"
#include "BenchStatistics.h"
#include "ResidentMemory.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QPoint>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <memory>

using bench::Display;
using bench::spawn;

namespace {
constexpr int kRuns = 20;
constexpr int kMenuRuns = 11;
// Where the desktop session's tray shows the application's icon (its only icon).
const QPoint kTrayIcon(1266, 14);

} // namespace

int main()
{
    Display display;
    if (!bench::onDesktop(display, "bench_app"))
        return 2;
    QTemporaryDir root;
    QProcess app;
    if (!bench::startApplication(app, root, QStringLiteral(TARVEL_APP_PATH)))
        return 1;
    // Launched and settled (the composer made ahead of time, the login shell's PATH asked).
    QThread::sleep(3);
    const double atLaunch = residentMegabytes(app.processId());

    QList<double> toMapped;
    QList<double> toExit;
    const QByteArray file = root.filePath(QStringLiteral("prompt.txt")).toLocal8Bit();
    for (int run = 0; run < kRuns; ++run) {
        QFile(QString::fromLocal8Bit(file)).open(QIODevice::WriteOnly);
        QElapsedTimer timer;
        timer.start();
        const pid_t helper = spawn(TARVEL_EDIT_PATH, file);
        if (helper < 0 || !display.waitUntil([&] { return display.composerMapped(); }, 10000)) {
            std::fprintf(stderr, "bench_app: the composer did not appear\n");
            return 1;
        }
        toMapped.append(double(timer.nsecsElapsed()) / 1e6);
        QThread::msleep(150); // let the panel take the focus, as a person would
        timer.restart();
        display.pressCtrlReturn();
        int status = 0;
        ::waitpid(helper, &status, 0);
        toExit.append(double(timer.nsecsElapsed()) / 1e6);
        display.waitUntil([&] { return !display.composerMapped(); }, 5000);
    }
    BenchStatistics::of(toMapped).print("helper start -> composer mapped");
    BenchStatistics::of(toExit).print("Ctrl+Return -> helper exit");

    // The tray icon sits at the right end of the tray strip of the desktop session; its menu opens
    // below it with "Quick Tasks" first and "Preferences…" second. Each is chosen by the keyboard
    // and timed from the Return to its window mapped; the quick task's composer is made ahead.
    struct MenuWindow {
        const char *name;
        int downs;
        QByteArray title;
        xcb_keysym_t closeModifier; // none when 0
        xcb_keysym_t closeKey;
        QList<double> times;
    };
    MenuWindow windows[] = {{"Quick Tasks", 1, "Tarvel Quick Task", 0, Display::kEscape, {}},
                            {"Preferences", 2, "Preferences", Display::kControl, Display::kW, {}}};
    for (MenuWindow &window : windows) {
        for (int run = 0; run < kMenuRuns; ++run) {
            display.click(kTrayIcon.x(), kTrayIcon.y());
            QThread::msleep(400);
            for (int down = 0; down < window.downs; ++down)
                display.press({Display::kDown});
            QElapsedTimer timer;
            timer.start();
            display.press({Display::kReturn});
            if (!display.waitUntil([&] { return display.windowMapped(window.title); }, 10000)) {
                std::fprintf(stderr, "bench_app: %s did not appear\n", window.name);
                return 1;
            }
            window.times.append(double(timer.nsecsElapsed()) / 1e6);
            QThread::msleep(300);
            if (window.closeModifier)
                display.press({window.closeModifier, window.closeKey});
            else
                display.press({window.closeKey});
            display.waitUntil([&] { return !display.windowMapped(window.title); }, 5000);
        }
        const QByteArray label = QByteArray(window.name) + " chosen -> window mapped";
        std::printf("%-44s %8.1f ms\n", (label + ", first").constData(), window.times.takeFirst());
        BenchStatistics::of(window.times).print((label + ", again").constData());
    }

    // Idle is after the worker threads of the quick task's backend checks have ended, which they
    // do 30 s after their last job.
    QThread::msleep(32000);
    const long long before = bench::wakeUps(app.processId());
    constexpr int idleSeconds = 10;
    QThread::sleep(idleSeconds);
    const long long after = bench::wakeUps(app.processId());
    std::printf("%-44s %8.2f per second (over %d s)\n", "idle wake-ups", double(after - before) / idleSeconds,
                idleSeconds);
    std::printf("%-44s %8.1f MB\n", "resident memory at launch, idle", atLaunch);
    std::printf("%-44s %8.1f MB\n", "resident memory after the runs", residentMegabytes(app.processId()));
    app.terminate();
    app.waitForFinished(5000);
    return 0;
}
