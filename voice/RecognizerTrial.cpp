#include "voice/RecognizerTrial.h"

#include "core/TarvelError.h"
#include "platform/PcmAudio.h"
#include "platform/SpeechEngine.h"

#include <QElapsedTimer>
#include <QPromise>
#include <QThreadPool>

#include <memory>

namespace RecognizerTrial {

QString sampleWords()
{
    return QStringLiteral("testing one two three");
}

QByteArray sampleSamples()
{
    return PcmAudio::readSamplesFile(QStringLiteral(":/voice/sample-utterance.wav"));
}

QFuture<Outcome> run(const QString &command, std::stop_token stop)
{
    auto promise = std::make_shared<QPromise<Outcome>>();
    QFuture<Outcome> future = promise->future();
    promise->start();
    QThreadPool::globalInstance()->start([promise, command, stop = std::move(stop)] {
        Outcome outcome;
        QElapsedTimer elapsed;
        try {
            const QByteArray samples = sampleSamples();
            const std::unique_ptr<SpeechEngine> engine = SpeechEngine::create({command});
            elapsed.start();
            outcome.transcript = engine->transcribe(samples, stop);
        } catch (const TarvelError &error) {
            outcome.error = error.description();
        }
        if (elapsed.isValid())
            outcome.elapsed = std::chrono::milliseconds(elapsed.elapsed());
        promise->addResult(outcome);
        promise->finish();
    });
    return future;
}

QString describe(const Outcome &outcome)
{
    const QString seconds = QString::number(
        double(outcome.elapsed.value_or(std::chrono::milliseconds(0)).count()) / 1000.0, 'f', 1);
    if (!outcome.error.isEmpty())
        return outcome.elapsed ? QStringLiteral("%1 (after %2 s)").arg(outcome.error, seconds)
                               : outcome.error;
    if (outcome.transcript.trimmed().isEmpty())
        return QStringLiteral("Heard nothing in %1 s. The recording says \u201c%2\u201d.")
            .arg(seconds, sampleWords());
    return QStringLiteral("Heard \u201c%1\u201d in %2 s. The recording says \u201c%3\u201d.")
        .arg(outcome.transcript.trimmed(), seconds, sampleWords());
}

} // namespace RecognizerTrial
