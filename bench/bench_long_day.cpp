// A long day of editor requests: 1,000 served by the real application on a desktop (the composer
// opens, a character is typed, Ctrl+Return answers), with the application's resident memory and
// open file descriptors before and after. The growth should stay under 5 MB and 0 descriptors.
//
// Run it on the headless desktop, from the build folder (about two minutes):
//   ../tests/e2e/desktop-session.sh -- bin/bench_long_day [REQUESTS]
#include "BenchDesktop.h"
#include "ResidentMemory.h"

#include <QDir>
#include <QFile>

#include <sys/wait.h>

#include <cstdio>

namespace {

constexpr int kWarmUp = 30;
constexpr double kMemoryBudgetMB = 5;

qsizetype openDescriptors(qint64 pid)
{
    return QDir(QStringLiteral("/proc/%1/fd").arg(pid)).entryList(QDir::NoDotAndDotDot | QDir::System).size();
}

// One request from start to answer; false when the composer never came.
bool serveOne(bench::Display &display, const QByteArray &file)
{
    QFile(QString::fromLocal8Bit(file)).open(QIODevice::WriteOnly | QIODevice::Truncate);
    const pid_t helper = bench::spawn(TARVEL_EDIT_PATH, file);
    if (helper < 0 || !display.waitUntil([&] { return display.composerMapped(); }, 10000))
        return false;
    QThread::msleep(30);   // the panel takes the focus
    display.press({0x78}); // x
    display.pressCtrlReturn();
    int status = 0;
    ::waitpid(helper, &status, 0);
    display.waitUntil([&] { return !display.composerMapped(); }, 5000);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

} // namespace

int main(int argc, char **argv)
{
    const int requests = argc > 1 ? std::atoi(argv[1]) : 1000;
    bench::Display display;
    if (requests <= 0 || !bench::onDesktop(display, "bench_long_day"))
        return 2;
    QTemporaryDir root;
    QProcess app;
    if (!bench::startApplication(app, root, QStringLiteral(TARVEL_APP_PATH)))
        return 1;
    const QByteArray file = root.filePath(QStringLiteral("prompt.txt")).toLocal8Bit();
    // Caches, fonts and the first composer's allocations are not growth.
    for (int run = 0; run < kWarmUp; ++run) {
        if (!serveOne(display, file))
            return 1;
    }
    QThread::msleep(1500);
    const double memoryBefore = residentMegabytes(app.processId());
    const qsizetype descriptorsBefore = openDescriptors(app.processId());

    int failed = 0;
    for (int run = 0; run < requests; ++run)
        failed += serveOne(display, file) ? 0 : 1;
    QThread::msleep(1500);
    const double memoryAfter = residentMegabytes(app.processId());
    const qsizetype descriptorsAfter = openDescriptors(app.processId());

    std::printf("%-40s %d (%d not answered)\n", "editor requests served", requests, failed);
    std::printf("%-40s %8.1f MB -> %8.1f MB  (growth %+.1f MB, budget %.0f MB)\n", "resident memory",
                memoryBefore, memoryAfter, memoryAfter - memoryBefore, kMemoryBudgetMB);
    std::printf("%-40s %8lld    -> %8lld     (growth %+lld, budget 0)\n", "open file descriptors",
                static_cast<long long>(descriptorsBefore), static_cast<long long>(descriptorsAfter),
                static_cast<long long>(descriptorsAfter - descriptorsBefore));
    app.terminate();
    app.waitForFinished(5000);
    const bool withinBudget =
        failed == 0 && memoryAfter - memoryBefore < kMemoryBudgetMB && descriptorsAfter <= descriptorsBefore;
    std::printf("%s\n", withinBudget ? "within budget" : "OVER BUDGET");
    return withinBudget ? 0 : 1;
}
