#pragma once

#include "core/TarvelError.h"

#include <QString>

// Everything that can go wrong between pressing the voice button and getting a prompt
// draft. description() is the text shown to the user.
class VoicePromptDraftError final : public TarvelError {
public:
    enum class Kind {
        recordingFailed,
        promptRewriteFailed,
        cancelled,
        microphonePermissionDenied,
        speechRecognitionPermissionDenied,
        speechRecognitionUnavailable,
        promptRewriteModelUnavailable,
        emptyTranscription,
    };

    // The message is the whole description.
    static VoicePromptDraftError recordingFailed(const QString &message);
    // The detail is the description; the transcript travels along, so that the user's
    // words can still be inserted.
    static VoicePromptDraftError promptRewriteFailed(const QString &transcript, const QString &detail);
    static VoicePromptDraftError cancelled();
    static VoicePromptDraftError microphonePermissionDenied();
    static VoicePromptDraftError speechRecognitionPermissionDenied();
    // The reason, when given, follows the sentence: what to install or set up.
    static VoicePromptDraftError speechRecognitionUnavailable(const QString &reason = {});
    static VoicePromptDraftError promptRewriteModelUnavailable();
    static VoicePromptDraftError emptyTranscription();

    Kind kind() const noexcept { return m_kind; }
    // promptRewriteFailed only; empty otherwise.
    const QString &transcript() const noexcept { return m_transcript; }

private:
    VoicePromptDraftError(Kind kind, QString description, QString transcript = {});

    Kind m_kind;
    QString m_transcript;
};
