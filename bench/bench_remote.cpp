// Requests from another machine, on a real desktop and a real sshd on the loopback address:
//   the request sent over there -> the composer mapped here, through the socket ssh forwards
//   (tarvel-edit started in an open ssh session), beside tarvel-edit on the socket directly and
//   tarvel-edit through the request files (median, min, max);
//   then the idle cost of the listening socket: wake-ups per second and resident memory of a fresh
//   Tarvel that listens, and of one that does not (its runtime folder is one others may change,
//   which it refuses).
//
// Run it on the headless desktop, from the build folder:
//   ../tests/e2e/desktop-session.sh -- bin/bench_remote [runs]
#include "BenchDesktop.h"
#include "BenchStatistics.h"
#include "LoopbackSshd.h"
#include "ResidentMemory.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <optional>

using bench::Display;

namespace {

constexpr int kIdleSeconds = 10;

// A fresh Tarvel left alone: its wake-ups per second and resident megabytes.
std::pair<double, double> idleCost(const QTemporaryDir &root, const QString &runtime)
{
    qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());
    QProcess app;
    if (!bench::startApplication(app, root, QStringLiteral(TARVEL_APP_PATH)))
        return {-1, -1};
    QThread::sleep(2);
    const long long before = bench::wakeUps(app.processId());
    QThread::sleep(kIdleSeconds);
    const double perSecond = double(bench::wakeUps(app.processId()) - before) / kIdleSeconds;
    const double resident = residentMegabytes(app.processId());
    app.terminate();
    app.waitForFinished(5000);
    return {perSecond, resident};
}

// Starts a request (start() returns how to wait for its end) and answers it once the composer is
// mapped; returns the milliseconds from start to mapped, nothing when no composer came.
template<typename Start> std::optional<double> timeToComposer(Display &display, const char *way, Start start)
{
    QElapsedTimer timer;
    timer.start();
    const auto finished = start();
    if (!display.waitUntil([&] { return display.composerMapped(); }, 10000)) {
        std::fprintf(stderr, "bench_remote: the composer did not appear for a request %s\n", way);
        return std::nullopt;
    }
    const double elapsed = double(timer.nsecsElapsed()) / 1e6;
    QThread::msleep(150);
    display.pressCtrlReturn();
    finished();
    display.waitUntil([&] { return !display.composerMapped(); }, 5000);
    return elapsed;
}

} // namespace

int main(int argc, char **argv)
{
    const int runs = argc > 1 ? std::atoi(argv[1]) : 20;
    Display display;
    if (!bench::onDesktop(display, "bench_remote"))
        return 2;
    QTemporaryDir root;
    const QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    const QString remoteHome = root.filePath(QStringLiteral("remote-home"));
    LoopbackSshd sshd(root.filePath(QStringLiteral("sshd")), remoteHome);
    if (!sshd.unavailableReason().isEmpty()) {
        std::fprintf(stderr, "bench_remote: %s\n", qPrintable(sshd.unavailableReason()));
        return 2;
    }

    // The idle cost first, on fresh copies.
    const QString open = root.filePath(QStringLiteral("open-runtime"));
    QDir().mkpath(open + QStringLiteral("/tarvel"));
    QFile::setPermissions(open, QFileDevice::Permissions(0x7700));
    QFile::setPermissions(open + QStringLiteral("/tarvel"), QFileDevice::Permissions(0x7777));
    const auto [listeningWakeUps, listeningMemory] = idleCost(root, runtime);
    const auto [refusedWakeUps, refusedMemory] = idleCost(root, open);
    qputenv("XDG_RUNTIME_DIR", runtime.toLocal8Bit());

    QProcess app;
    if (!bench::startApplication(app, root, QStringLiteral(TARVEL_APP_PATH)))
        return 1;
    const QString local = runtime + QStringLiteral("/tarvel/remote.sock");
    const QString forwarded = remoteHome + QStringLiteral("/.local/state/tarvel/remote.sock");
    QDir().mkpath(QFileInfo(forwarded).path());
    QFile::setPermissions(QFileInfo(forwarded).path(), QFileDevice::Permissions(0x7700));
    QFile config(root.filePath(QStringLiteral("ssh_config")));
    config.open(QIODevice::WriteOnly);
    config.write(sshd.clientOptions().toUtf8());
    config.close();

    // One ssh session for every run: a line on its input starts tarvel-edit over there, and a
    // line on its output says it ended.
    QProcess session;
    session.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    session.start(
        QStringLiteral("ssh"),
        {QStringLiteral("-F"), config.fileName(), QStringLiteral("-T"), QStringLiteral("-R"),
         forwarded + u':' + local, QStringLiteral("devbox"),
         QStringLiteral("cd; while read -r line; do : > prompt.md; '%1' prompt.md; echo ended; done")
             .arg(QStringLiteral(TARVEL_EDIT_PATH))});
    if (!session.waitForStarted() || !QTest::qWaitFor([&] { return QFileInfo::exists(forwarded); }, 10000)) {
        std::fprintf(stderr, "bench_remote: ssh did not forward the socket\n");
        return 1;
    }
    QList<double> throughSsh, direct, files;
    const QByteArray file = root.filePath(QStringLiteral("prompt.txt")).toLocal8Bit();
    for (int run = 0; run < runs; ++run) {
        const std::optional<double> overSsh = timeToComposer(display, "sent over ssh", [&] {
            session.write("go\n");
            session.waitForBytesWritten(1000);
            return [&] {
                while (!session.canReadLine())
                    session.waitForReadyRead(10000);
                session.readLine();
            };
        });
        if (!overSsh)
            return 1;
        throughSsh.append(*overSsh);
        for (const bool remote : {true, false}) {
            QFile(QString::fromLocal8Bit(file)).open(QIODevice::WriteOnly);
            if (remote)
                qputenv("TARVEL_REMOTE_SOCKET", local.toLocal8Bit());
            else
                qunsetenv("TARVEL_REMOTE_SOCKET");
            const std::optional<double> elapsed =
                timeToComposer(display, remote ? "sent on the socket" : "sent as a file", [&] {
                    const pid_t helper = bench::spawn(TARVEL_EDIT_PATH, file);
                    return [helper] {
                        int status = 0;
                        ::waitpid(helper, &status, 0);
                    };
                });
            if (!elapsed)
                return 1;
            (remote ? direct : files).append(*elapsed);
        }
    }
    session.closeWriteChannel();
    session.waitForFinished(5000);
    app.terminate();
    app.waitForFinished(5000);

    BenchStatistics::of(throughSsh).print("sent over ssh -> composer mapped");
    BenchStatistics::of(direct).print("sent on the socket directly -> mapped");
    BenchStatistics::of(files).print("sent as a request file -> mapped");
    std::printf("%-44s %8.2f per second, %6.1f MB resident\n", "idle, listening on the socket",
                listeningWakeUps, listeningMemory);
    std::printf("%-44s %8.2f per second, %6.1f MB resident\n", "idle, not listening", refusedWakeUps,
                refusedMemory);
    return 0;
}
