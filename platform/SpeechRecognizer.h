#pragma once

#include "core/TarvelError.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <utility>

// Why start() could not begin a capture.
class SpeechRecognizerError final : public TarvelError {
public:
    enum class Kind {
        // No recogniser can run here (no model installed, the configured command missing).
        recognitionUnavailable,
        // The microphone could not be opened or started.
        captureFailed,
    };

    SpeechRecognizerError(Kind kind, QString description)
        : TarvelError(std::move(description))
        , m_kind(kind)
    {
    }
    Kind kind() const noexcept { return m_kind; }

private:
    Kind m_kind;
};

// On-device speech recognition of the default microphone, streaming. While audio is
// captured, each recognitionUpdated carries the whole transcript so far (it replaces the
// previous one); after finishAudio() a final one follows (isFinal true) or
// recognitionFailed. Signals arrive on the thread that made the object; capture and
// recognition run on threads of their own. Nothing reaches a server.
class SpeechRecognizer : public QObject {
    Q_OBJECT

public:
    // Where the system asks the user for access (the Mac), the answer so far; elsewhere
    // what the machine allows.
    enum class Access { notDetermined, denied, restricted, authorized };

    struct Configuration {
        // A recogniser of the user's own: a command line that gets the path of a 16 kHz mono
        // WAV of the utterance as its last argument and prints the transcript. Asked at each
        // start; empty means the built-in recogniser.
        std::function<QString()> recognizerCommand;
        // How long a loaded model stays in memory after its last use.
        std::chrono::milliseconds modelIdleRelease = std::chrono::minutes(3);
        // How long the recogniser command may take for one utterance.
        std::chrono::milliseconds commandTimeLimit = std::chrono::seconds(30);
    };

    // This system's recogniser. Cheap: models are loaded on first use.
    static std::unique_ptr<SpeechRecognizer> create(Configuration configuration);

    using QObject::QObject;
    ~SpeechRecognizer() override = default;

    virtual Access speechRecognitionAccess() const = 0;
    virtual Access microphoneAccess() const = 0;
    // Ask the user where the system asks; the answer comes on the object's thread.
    virtual void requestSpeechRecognitionAccess(std::function<void(bool granted)> answer) = 0;
    virtual void requestMicrophoneAccess(std::function<void(bool granted)> answer) = 0;
    // Empty when recognition can run now; otherwise a sentence saying what to install or set
    // up, for the user.
    virtual QString unavailableReason() const = 0;

    // Begins capture and recognition, ending any earlier one. Throws SpeechRecognizerError.
    virtual void start() = 0;
    // Stops the capture and ends the audio; a final recognitionUpdated or a
    // recognitionFailed follows.
    virtual void finishAudio() = 0;
    // Tears the capture down; no signal of it follows.
    virtual void cancel() = 0;
    // How long the final result of the capture the last start() began may take after
    // finishAudio(). None where partial results keep up with the speech, so a stop needs only
    // a short wait; a recogniser that transcribes only once the audio has ended (the user's
    // command) gives its own time limit.
    virtual std::optional<std::chrono::milliseconds> finalResultTimeLimit() const { return std::nullopt; }

Q_SIGNALS:
    void recognitionUpdated(const QString &transcript, bool isFinal);
    void recognitionFailed(const QString &errorText);
};
