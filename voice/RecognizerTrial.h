#pragma once

#include <QByteArray>
#include <QFuture>
#include <QString>

#include <chrono>
#include <optional>
#include <stop_token>

// The preferences' Test of a recogniser: the engine a command line names (empty: the built-in
// one) transcribes a short recording that ships with Tarvel, on a pool thread, the same way a
// dictation's utterance is transcribed.
namespace RecognizerTrial {

struct Outcome {
    // What the recogniser heard; empty when it heard nothing or failed.
    QString transcript;
    // Why it failed, for the user; empty when it ran.
    QString error;
    // From the first sample to the transcript or the failure; none when the recogniser could
    // not be started.
    std::optional<std::chrono::milliseconds> elapsed;
};

// The words spoken in the recording.
QString sampleWords();
// The recording: 16 kHz mono signed 16-bit samples.
QByteArray sampleSamples();

// Never fails: a failure is the outcome's error. A stop request ends a running command soon.
QFuture<Outcome> run(const QString &command, std::stop_token stop);

// One sentence for the user: what was heard, or the error, and the time it took.
QString describe(const Outcome &outcome);

} // namespace RecognizerTrial
