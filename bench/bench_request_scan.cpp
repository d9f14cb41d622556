// How long the application's scan of the Requests folder takes with 1,000 pending
// requests: pendingRequestURLs (list and order by creation date) and
// loadPendingRequests (the same plus reading and decoding every file).
//
//   cmake --build BUILD --target bench_request_scan && BUILD/bin/bench_request_scan [files] [repetitions]
//
// Works in a temporary data folder; the user's own Tarvel folder is never touched.
#include "core/RequestFileIO.h"

#include "bench/BenchStatistics.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>

#include <cstdio>
#include <cstdlib>

namespace {

double millisecondsOf(const auto &work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    return double(timer.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication application(argc, argv);
    const int files = argc > 1 ? std::atoi(argv[1]) : 1000;
    const int repetitions = argc > 2 ? std::atoi(argv[2]) : 20;

    QTemporaryDir home;
    qputenv("HOME", home.path().toLocal8Bit());
    qputenv("XDG_DATA_HOME", (home.path() + QStringLiteral("/data")).toLocal8Bit());

    // A typical request: a prompt of a few hundred characters and every optional field.
    const QString prompt =
        QStringLiteral("Refactor the request intake so that a malformed file is quarantined "
                       "before the queue is rebuilt, and add a test for it.\n")
            .repeated(4);
    QElapsedTimer filling;
    filling.start();
    for (int index = 0; index < files; ++index) {
        RequestFileIO::writeRequest(
            {QUuid::createUuid(), QDateTime::currentDateTimeUtc(), QStringLiteral("/home/user/src/project"),
             prompt, QStringLiteral("/tmp/prompt-%1.md").arg(index), QStringLiteral("xterm"), qint32(4242)});
    }
    std::printf("wrote %d request files in %.1f ms\n", files, double(filling.nsecsElapsed()) / 1e6);

    QList<double> listing;
    QList<double> loading;
    qsizetype listed = 0;
    qsizetype loaded = 0;
    RequestFileIO::loadPendingRequests(); // warm the caches once, as a running application would have
    for (int run = 0; run < repetitions; ++run) {
        listing.append(millisecondsOf([&] { listed = RequestFileIO::pendingRequestURLs().size(); }));
        loading.append(millisecondsOf([&] { loaded = RequestFileIO::loadPendingRequests().size(); }));
    }
    if (listed != files || loaded != files) {
        std::fprintf(stderr, "expected %d requests, listed %lld and loaded %lld\n", files,
                     static_cast<long long>(listed), static_cast<long long>(loaded));
        return 1;
    }
    BenchStatistics::of(listing).print("pendingRequestURLs");
    BenchStatistics::of(loading).print("loadPendingRequests");
    std::printf("target: a scan of 1,000 files under 50 ms\n");
    return 0;
}
