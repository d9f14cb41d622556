// The round trip of tarvel-edit, from starting the helper to its exit, against the test
// responder that stands in for the application; the responder's own time per request
// is printed beside it, and so are the bare costs of starting a process and of starting
// tarvel-edit (--version does nothing else).
//
//   cmake --build BUILD --target bench_helper_round_trip && BUILD/bin/bench_helper_round_trip [runs]
//
// Starts a private session bus (dbus-daemon --session), so a Tarvel running on the
// desktop is never involved, and works in a temporary data folder.
#include "bench/BenchStatistics.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

namespace {

// Starts a process, waits for its exit and returns the milliseconds in between, or a
// negative value when it failed.
double timedRun(const QString &program, const QStringList &arguments)
{
    QProcess process;
    QElapsedTimer timer;
    timer.start();
    process.start(program, arguments);
    if (!process.waitForFinished(30000) || process.exitStatus() != QProcess::NormalExit ||
        process.exitCode() != 0) {
        std::fprintf(stderr, "%s failed: %s\n", qPrintable(program),
                     process.readAllStandardError().constData());
        return -1;
    }
    return double(timer.nsecsElapsed()) / 1e6;
}

bool waitForLine(QProcess &process, QByteArray &line)
{
    while (!process.canReadLine()) {
        if (!process.waitForReadyRead(10000))
            return false;
    }
    line = process.readLine().trimmed();
    return true;
}

class Background final {
public:
    ~Background()
    {
        process.terminate();
        process.waitForFinished(5000);
    }
    QProcess process;
};

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const int runs = argc > 1 ? std::atoi(argv[1]) : 50;
    constexpr int kWarmUpRuns = 3;

    QTemporaryDir home;
    const QDir root(home.path());
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_DATA_HOME", root.filePath(QStringLiteral("data")).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", root.filePath(QStringLiteral("config")).toLocal8Bit());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Should the responder go away, the helper must fail rather than start anything.
    qputenv("TARVEL_APP_PATH", root.filePath(QStringLiteral("no-application")).toLocal8Bit());
    qputenv("TARVEL_FALLBACK_EDITOR", "false");

    Background bus;
    bus.process.start(QStringLiteral("dbus-daemon"), {QStringLiteral("--session"), QStringLiteral("--nofork"),
                                                      QStringLiteral("--print-address=1")});
    QByteArray address;
    if (!waitForLine(bus.process, address) || address.isEmpty()) {
        std::fputs("could not start dbus-daemon\n", stderr);
        return 1;
    }
    qputenv("DBUS_SESSION_BUS_ADDRESS", address);

    const QString log = root.filePath(QStringLiteral("responder.log"));
    Background responder;
    responder.process.start(QStringLiteral(TARVEL_TEST_RESPONDER_PATH),
                            {QStringLiteral("--mode"), QStringLiteral("submit"), QStringLiteral("--text"),
                             QStringLiteral("answered"), QStringLiteral("--log"), log});
    QByteArray ready;
    if (!waitForLine(responder.process, ready) || ready != "ready") {
        std::fputs("the test responder did not start\n", stderr);
        return 1;
    }

    const QString prompt = root.filePath(QStringLiteral("PROMPT.md"));
    QList<double> roundTrips;
    for (int run = 0; run < kWarmUpRuns + runs; ++run) {
        QFile file(prompt);
        if (!file.open(QIODevice::WriteOnly) || file.write("Explain the failing test.\n") < 0)
            return 1;
        file.close();
        const double milliseconds = timedRun(QStringLiteral(TARVEL_EDIT_PATH), {prompt});
        if (milliseconds < 0 || !file.open(QIODevice::ReadOnly) || file.readAll() != "answered") {
            std::fputs("a round trip failed\n", stderr);
            return 1;
        }
        if (run >= kWarmUpRuns)
            roundTrips.append(milliseconds);
    }

    QList<double> responderTimes;
    QFile answers(log);
    if (answers.open(QIODevice::ReadOnly)) {
        const QList<QByteArray> lines = answers.readAll().split('\n');
        for (qsizetype index = kWarmUpRuns; index < lines.size(); ++index) {
            if (!lines[index].isEmpty())
                responderTimes.append(
                    QJsonDocument::fromJson(lines[index]).object().value(u"handlingMicroseconds").toDouble() /
                    1000);
        }
    }

    // The floor: starting the helper with its C++ runtime, and starting any process at all.
    QList<double> versionRuns;
    QList<double> bareStarts;
    for (int run = 0; run < runs; ++run) {
        versionRuns.append(timedRun(QStringLiteral(TARVEL_EDIT_PATH), {QStringLiteral("--version")}));
        bareStarts.append(timedRun(QStringLiteral("/bin/true"), {}));
    }

    BenchStatistics::of(roundTrips).print("tarvel-edit round trip (start to exit)");
    BenchStatistics::of(responderTimes).print("  of which the responder's own handling");
    BenchStatistics::of(versionRuns).print("  for comparison: tarvel-edit --version");
    BenchStatistics::of(bareStarts).print("  for comparison: /bin/true");
    std::printf("target: round trip under 20 ms median plus the responder's own time\n");
    return 0;
}
