#pragma once

#include "core/TarvelError.h"

#include <QByteArray>
#include <QString>

#include <chrono>
#include <memory>
#include <stop_token>
#include <utility>

// Why an utterance produced no transcript.
class SpeechEngineError final : public TarvelError {
public:
    explicit SpeechEngineError(QString description)
        : TarvelError(std::move(description))
    {
    }
};

// A streaming recogniser fed 16 kHz mono signed 16-bit samples, with no microphone of its own:
// the live recogniser feeds it from the capture, `tarvel transcribe` from a file. Not thread-safe;
// one thread uses it at a time. Making one may load a model, which takes a moment.
class SpeechEngine {
public:
    static constexpr int sampleRate = 16000;

    struct Options {
        // The user's recogniser command line; empty means the built-in recogniser.
        QString command;
        std::chrono::milliseconds commandTimeLimit = std::chrono::seconds(30);
    };

    // The recogniser the options name. Throws SpeechRecognizerError (recognitionUnavailable)
    // with unavailableReason() when it cannot run here.
    static std::unique_ptr<SpeechEngine> create(const Options &options);
    // Empty when the recogniser for this command line (empty: the built-in one) can run here;
    // otherwise a sentence saying what to install or fix.
    static QString unavailableReason(const QString &command);

    virtual ~SpeechEngine() = default;

    // Starts a new utterance, dropping any unfinished one.
    virtual void beginUtterance() = 0;
    // Feeds the next samples; returns the whole transcript so far (empty when the recogniser
    // gives none before the end).
    virtual QString feed(const qint16 *samples, qsizetype count) = 0;
    // Ends the utterance and returns its final transcript. A stop request makes it return soon
    // (throwing). Throws SpeechEngineError.
    virtual QString finishUtterance(std::stop_token stop) = 0;

    // A whole recording as one utterance, fed in tenths of a second as a microphone would, so
    // that recordings take the live path. Throws SpeechEngineError.
    QString transcribe(const QByteArray &samples, std::stop_token stop);

private:
    // This system's own recogniser, and why it cannot run (empty when it can).
    static std::unique_ptr<SpeechEngine> createBuiltIn();
    static QString builtInUnavailableReason();
};
