// Throughput of a quick task's output pipeline on codex JSON lines: line splitting, event
// decoding, and the raw-log and transcript appends, as the application runs them per read.
#include "quicktasks/OutputFile.h"
#include "quicktasks/OutputLineBuffer.h"
#include "quicktasks/QuickTaskOutputHandler.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QTemporaryDir>

#include <cstdio>

namespace {

constexpr qsizetype kTotalBytes = 100 * 1024 * 1024;
// What one read of a pipe yields at most.
constexpr qsizetype kChunkSize = 64 * 1024;

// A turn of `codex exec --json` repeated: reasoning, commands with their output, agent
// messages, usage; with escapes and non-ASCII text as real transcripts have them.
QByteArray makeCodexStream()
{
    QByteArray stream;
    stream.reserve(kTotalBytes + 64 * 1024);
    stream += R"({"type":"thread.started","thread_id":"0199a213-81c0-7800-8aa1-bbab2a035a53"})"
              "\n";
    QByteArray listing;
    for (int i = 0; i < 40; ++i)
        listing += "src/module_" + QByteArray::number(i) + "/file.rs\\n";
    int item = 0;
    while (stream.size() < kTotalBytes) {
        const QByteArray id = "item_" + QByteArray::number(item++);
        stream += R"({"type":"turn.started"})"
                  "\n";
        stream +=
            R"({"type":"item.completed","item":{"id":")" + id +
            R"(","type":"reasoning","text":"**Inspecting the build** I\u2019ll look at the \"CMakeLists.txt\" files first and then run the tests."}})"
            "\n";
        stream +=
            R"({"type":"item.started","item":{"id":")" + id +
            R"(c","type":"command_execution","command":"bash -lc 'rg --files | head -40'","aggregated_output":"","exit_code":null,"status":"in_progress"}})"
            "\n";
        stream +=
            R"({"type":"item.completed","item":{"id":")" + id +
            R"(c","type":"command_execution","command":"bash -lc 'rg --files | head -40'","aggregated_output":")" +
            listing +
            R"(","exit_code":0,"status":"completed"}})"
            "\n";
        stream +=
            R"({"type":"item.completed","item":{"id":")" + id +
            R"(m","type":"agent_message","text":"Die Änderung ist fertig: the build now passes.\n\n- `core/` untouched\n- tests: 42 passed"}})"
            "\n";
        stream +=
            R"({"type":"turn.completed","usage":{"input_tokens":24763,"cached_input_tokens":24448,"output_tokens":122}})"
            "\n";
    }
    return stream;
}

double megabytesPerSecond(qsizetype bytes, qint64 nanoseconds)
{
    return (double(bytes) / (1024.0 * 1024.0)) / (double(nanoseconds) / 1e9);
}

template<typename Work> qint64 timed(Work work)
{
    QElapsedTimer clock;
    clock.start();
    work();
    return clock.nsecsElapsed();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QByteArray stream = makeCodexStream();
    std::printf("input: %.1f MB of codex JSON lines, fed in %lld KiB reads\n",
                double(stream.size()) / (1024 * 1024), static_cast<long long>(kChunkSize / 1024));

    // Splitting and line decoding alone.
    qsizetype lines = 0;
    const qint64 splitting = timed([&] {
        OutputLineBuffer buffer;
        for (qsizetype offset = 0; offset < stream.size(); offset += kChunkSize) {
            buffer.append(QByteArrayView(stream).sliced(offset, qMin(kChunkSize, stream.size() - offset)),
                          [&lines](QByteArrayView line) {
                              if (OutputLine::trimmed(line))
                                  ++lines;
                          });
        }
    });

    // The whole handler: splitting, codex event decoding, raw-log and transcript text.
    QByteArray finalResponse;
    const qint64 handling = timed([&] {
        QuickTaskOutputHandler handler(QuickTaskCLIBackend::codex);
        for (qsizetype offset = 0; offset < stream.size(); offset += kChunkSize)
            handler.consume(OutputStream::standardOutput,
                            QByteArrayView(stream).sliced(offset, qMin(kChunkSize, stream.size() - offset)));
        handler.finish();
        finalResponse = handler.finalResponse().value_or(QString()).toUtf8();
    });

    // And the appends to the two files after every read, as the task store does them.
    QTemporaryDir directory;
    const QString rawLog = QDir(directory.path()).filePath(QStringLiteral("raw.log"));
    const QString transcript = QDir(directory.path()).filePath(QStringLiteral("transcript.txt"));
    bool writesFailed = false;
    const qint64 pipeline = timed([&] {
        QuickTaskOutputHandler handler(QuickTaskCLIBackend::codex);
        for (qsizetype offset = 0; offset < stream.size(); offset += kChunkSize) {
            const QuickTaskOutputUpdate update = handler.consume(
                OutputStream::standardOutput,
                QByteArrayView(stream).sliced(offset, qMin(kChunkSize, stream.size() - offset)));
            writesFailed |= !OutputFile::append(rawLog, update.rawLogText);
            if (!update.transcriptText.isEmpty())
                writesFailed |= !OutputFile::append(transcript, update.transcriptText);
        }
    });

    std::printf("lines: %lld; final response: %s\n", static_cast<long long>(lines),
                finalResponse.left(40).replace('\n', ' ').constData());
    std::printf("raw log: %.1f MB, transcript: %.1f MB%s\n", double(QFileInfo(rawLog).size()) / (1024 * 1024),
                double(QFileInfo(transcript).size()) / (1024 * 1024), writesFailed ? " (writes FAILED)" : "");
    std::printf("splitting and decoding lines:          %8.1f MB/s\n",
                megabytesPerSecond(stream.size(), splitting));
    std::printf("+ codex events, log and transcript text: %6.1f MB/s\n",
                megabytesPerSecond(stream.size(), handling));
    std::printf("+ appends to raw log and transcript:   %8.1f MB/s  (target: at least 100)\n",
                megabytesPerSecond(stream.size(), pipeline));
    return writesFailed ? 1 : 0;
}
