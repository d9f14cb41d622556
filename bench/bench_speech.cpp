// The built-in speech recogniser on Debian's recorded speech: word error rate on the LibriVox
// set, real-time factor, the wait from the end of the audio to the final transcript, and the
// resident memory with the model loaded and after it is released.
#include "BenchStatistics.h"
#include "ResidentMemory.h"
#include "SpeechTestData.h"
#include "platform/PcmAudio.h"
#include "platform/SpeechEngine.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QThread>

#include <cstdio>
#include <malloc.h>

namespace {

constexpr qsizetype kChunk = SpeechEngine::sampleRate / 10;

double seconds(const QByteArray &samples)
{
    return double(samples.size() / 2) / SpeechEngine::sampleRate;
}

// Feeds tenths of a second; paced like a microphone when asked, else as fast as it goes.
// Returns the transcript and how long finishing took after the last chunk was handed over.
QString transcribe(SpeechEngine &engine, const QByteArray &samples, bool paced, double *finishMs = nullptr)
{
    engine.beginUtterance();
    const auto *data = reinterpret_cast<const qint16 *>(samples.constData());
    const qsizetype count = samples.size() / 2;
    QElapsedTimer pace;
    pace.start();
    QElapsedTimer sinceLastChunk;
    for (qsizetype offset = 0; offset < count; offset += kChunk) {
        if (paced) {
            const qint64 due = offset * 1000 / SpeechEngine::sampleRate + 100;
            QThread::msleep(static_cast<unsigned long>(std::max<qint64>(0, due - pace.elapsed())));
        }
        sinceLastChunk.start();
        engine.feed(data + offset, std::min(kChunk, count - offset));
    }
    const QString transcript = engine.finishUtterance(std::stop_token());
    if (finishMs)
        *finishMs = double(sinceLastChunk.nsecsElapsed()) / 1e6;
    return transcript;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);
    const QString reason = SpeechEngine::unavailableReason({});
    if (!reason.isEmpty()) {
        std::fprintf(stderr, "%s\n", qPrintable(reason));
        return 1;
    }
    QList<SpeechTestData::Recording> recordings = SpeechTestData::libriVox();
    QList<QByteArray> audio;
    for (const SpeechTestData::Recording &recording : recordings)
        audio.append(PcmAudio::readSamplesFile(recording.wavPath));
    const double before = residentMegabytes();

    QElapsedTimer clock;
    clock.start();
    std::unique_ptr<SpeechEngine> engine = SpeechEngine::create({});
    std::printf("%-44s %8.0f ms\n", "model load", double(clock.nsecsElapsed()) / 1e6);

    // Word error rate with one engine for the whole set, as in a session of dictation.
    qsizetype errors = 0, words = 0;
    double audioSeconds = 0, busySeconds = 0;
    for (qsizetype index = 0; index < recordings.size(); ++index) {
        clock.restart();
        const QString hypothesis = transcribe(*engine, audio[index], false);
        busySeconds += double(clock.nsecsElapsed()) / 1e9;
        audioSeconds += seconds(audio[index]);
        errors +=
            SpeechTestData::wordErrors(recordings[index].words, hypothesis.split(u' ', Qt::SkipEmptyParts));
        words += recordings[index].words.size();
    }

    // The recording closest to 6 s, fed in real time: the stop comes with its last chunk.
    const auto closest =
        std::min_element(audio.cbegin(), audio.cend(), [](const QByteArray &a, const QByteArray &b) {
            return std::abs(seconds(a) - 6) < std::abs(seconds(b) - 6);
        });
    QList<double> finishes;
    for (int run = 0; run < 5; ++run) {
        double finishMs = 0;
        transcribe(*engine, *closest, true, &finishMs);
        finishes.append(finishMs);
    }

    const double loaded = residentMegabytes();
    engine.reset();
    const double released = residentMegabytes();
    malloc_trim(0);
    const double trimmed = residentMegabytes();

    // And with a fresh engine per recording, as tarvel transcribe runs.
    qsizetype freshErrors = 0;
    for (qsizetype index = 0; index < recordings.size(); ++index) {
        const std::unique_ptr<SpeechEngine> fresh = SpeechEngine::create({});
        freshErrors += SpeechTestData::wordErrors(
            recordings[index].words, transcribe(*fresh, audio[index], false).split(u' ', Qt::SkipEmptyParts));
    }

    std::printf("%-44s %8.1f %%   (%lld errors in %lld words, %lld recordings)\n",
                "word error rate, LibriVox", 100.0 * double(errors) / double(words), qlonglong(errors),
                qlonglong(words), qlonglong(recordings.size()));
    std::printf("%-44s %8.1f %%\n", "  with a fresh engine per recording",
                100.0 * double(freshErrors) / double(words));
    std::printf("%-44s %8.3f     (%.1f s of audio in %.1f s)\n", "real-time factor",
                busySeconds / audioSeconds, audioSeconds, busySeconds);
    const QByteArray label =
        QStringLiteral("end of audio to final, %1 s utterance").arg(seconds(*closest), 0, 'f', 2).toUtf8();
    BenchStatistics::of(finishes).print(label.constData());
    std::printf("%-44s %8.1f MB\n", "resident before loading", before);
    std::printf("%-44s %8.1f MB\n", "resident with the model loaded", loaded);
    std::printf("%-44s %8.1f MB\n", "resident after release", released);
    std::printf("%-44s %8.1f MB\n", "resident after release and malloc_trim", trimmed);
    return 0;
}
