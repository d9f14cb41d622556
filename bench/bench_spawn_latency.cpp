// How long a backend takes to be running after start: ProcessGroupTask::run() returns
// once the child has executed its program (posix_spawn waits for the exec), and the first
// byte it writes reaches the main thread through the pipe reader.
#include "quicktasks/ProcessGroupTask.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

constexpr int kSpawns = 50;

void printFigures(const char *what, std::vector<double> milliseconds)
{
    std::sort(milliseconds.begin(), milliseconds.end());
    std::printf("%-34s median %6.2f ms   min %6.2f ms   max %6.2f ms\n", what,
                milliseconds[milliseconds.size() / 2], milliseconds.front(), milliseconds.back());
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    std::vector<double> untilRunning;
    std::vector<double> untilFirstOutput;
    std::vector<double> untilFinished;
    for (int i = 0; i < kSpawns; ++i) {
        ProcessGroupTask task(QStringLiteral("/bin/echo"), {QStringLiteral("ready")}, QString(),
                              QProcessEnvironment::systemEnvironment());
        QEventLoop loop;
        QElapsedTimer clock;
        bool finished = false;
        QObject::connect(&task, &ProcessGroupTask::standardOutputReceived, &loop, [&] {
            if (untilFirstOutput.size() == untilRunning.size() - 1)
                untilFirstOutput.push_back(double(clock.nsecsElapsed()) / 1e6);
        });
        QObject::connect(&task, &ProcessGroupTask::finished, &loop, [&] {
            untilFinished.push_back(double(clock.nsecsElapsed()) / 1e6);
            finished = true;
            loop.quit();
        });
        QTimer::singleShot(10000, &loop, &QEventLoop::quit);
        clock.start();
        task.run();
        untilRunning.push_back(double(clock.nsecsElapsed()) / 1e6);
        loop.exec();
        if (!finished) {
            std::fprintf(stderr, "spawn %d did not finish\n", i);
            return 1;
        }
    }
    std::printf("%d spawns of /bin/echo in a new process group\n", kSpawns);
    printFigures("start -> child running (run()):", untilRunning);
    printFigures("start -> first output received:", untilFirstOutput);
    printFigures("start -> exit reported:", untilFinished);
    return 0;
}
