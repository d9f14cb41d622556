#pragma once

#include "backends/QuickTaskCLIBackend.h"
#include "settings/QuickTaskPreset.h"

#include <QFuture>
#include <QObject>
#include <QString>

#include <optional>

class PromptRewriteService;
class SpeechRecognizer;
class UserDefaults;
class VoicePromptTranscriber;

// Dictation into a prompt draft, as a composer drives it: idle → recording (start) →
// transcribing (stop: the recogniser's transcript) → processing (its rewrite by the backend)
// → idle. One per composer; lives on the main thread.
class VoicePromptBuilder final : public QObject {
    Q_OBJECT

public:
    enum class State { idle, recording, transcribing, processing };
    Q_ENUM(State)

    VoicePromptBuilder(SpeechRecognizer &recognizer, UserDefaults &defaults, QObject *parent = nullptr);
    ~VoicePromptBuilder() override;

    State state() const noexcept { return m_state; }

    // Asks for access, then starts capturing. Does nothing unless idle. Fails with a
    // VoicePromptDraftError (any other failure becomes recordingFailed); the state stays
    // idle then.
    QFuture<void> startRecording();
    // Stops the capture and rewrites the trimmed transcript into a draft in the working
    // directory. Only from recording (otherwise cancelled). Fails with a
    // VoicePromptDraftError, or the error of finding the backend. Ends idle, whatever happens.
    QFuture<QString> stopRecordingAndBuildPrompt(const QString &workingDirectory,
                                                 const std::optional<QuickTaskPreset> &preferredPreset);
    // Ends a capture or rewrite under way with cancelled and goes back to idle.
    void cancel();

    // The rewrite's preset for the current backend: the preferred one when it is usable,
    // else the voice-draft preset when it is, else an empty one that no backend runs.
    QuickTaskPreset preferredPromptRewritePreset(const std::optional<QuickTaskPreset> &preferredPreset) const;
    // Whether a dictation could be turned into a draft now.
    bool isVoicePromptAvailable(const std::optional<QuickTaskPreset> &preferredPreset) const;

Q_SIGNALS:
    void stateChanged(VoicePromptBuilder::State state);
    // The recogniser failed while recording (the microphone, its format, the recogniser's
    // model): nothing more is recorded. The owner stops now; the stop answers at once with
    // the words heard or the failure.
    void captureFailed();

private:
    void setState(State state);
    QuickTaskCLIBackend backend() const;
    // Back to idle when the build is still the current one (not cancelled or replaced).
    void finishBuild(quint64 build);

    SpeechRecognizer &m_recognizer;
    UserDefaults &m_defaults;
    VoicePromptTranscriber *m_transcriber = nullptr;
    PromptRewriteService *m_rewriter = nullptr;
    State m_state = State::idle;
    // Counts starts, stops and cancels, so that a late answer of an earlier one changes nothing.
    quint64 m_generation = 0;
    bool m_isStarting = false;
};
