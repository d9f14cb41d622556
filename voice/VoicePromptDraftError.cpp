#include "voice/VoicePromptDraftError.h"

#include "platform/HostPlatform.h"

#include <utility>

VoicePromptDraftError::VoicePromptDraftError(Kind kind, QString description, QString transcript)
    : TarvelError(std::move(description))
    , m_kind(kind)
    , m_transcript(std::move(transcript))
{
}

VoicePromptDraftError VoicePromptDraftError::recordingFailed(const QString &message)
{
    return VoicePromptDraftError(Kind::recordingFailed, message);
}

VoicePromptDraftError VoicePromptDraftError::promptRewriteFailed(const QString &transcript,
                                                                 const QString &detail)
{
    return VoicePromptDraftError(Kind::promptRewriteFailed, detail, transcript);
}

VoicePromptDraftError VoicePromptDraftError::cancelled()
{
    return VoicePromptDraftError(Kind::cancelled, QStringLiteral("Voice capture was cancelled."));
}

VoicePromptDraftError VoicePromptDraftError::microphonePermissionDenied()
{
    return VoicePromptDraftError(Kind::microphonePermissionDenied,
                                 QStringLiteral("Microphone access is required to dictate a prompt."));
}

VoicePromptDraftError VoicePromptDraftError::speechRecognitionPermissionDenied()
{
    return VoicePromptDraftError(
        Kind::speechRecognitionPermissionDenied,
        QStringLiteral("Speech Recognition access is required to transcribe a dictated prompt."));
}

VoicePromptDraftError VoicePromptDraftError::speechRecognitionUnavailable(const QString &reason)
{
    QString description =
        HostPlatform::usesMacConventions()
            ? QStringLiteral("On-device Speech Recognition is unavailable on this Mac right now.")
            : QStringLiteral("On-device Speech Recognition is unavailable on this computer right now.");
    // A recogniser that gives no reason of its own answers with this very sentence.
    if (!reason.isEmpty() && reason != description)
        description += u' ' + reason;
    return VoicePromptDraftError(Kind::speechRecognitionUnavailable, description);
}

VoicePromptDraftError VoicePromptDraftError::promptRewriteModelUnavailable()
{
    return VoicePromptDraftError(
        Kind::promptRewriteModelUnavailable,
        QStringLiteral("No model is available to turn the transcript into a prompt draft."));
}

VoicePromptDraftError VoicePromptDraftError::emptyTranscription()
{
    return VoicePromptDraftError(Kind::emptyTranscription, QStringLiteral("No speech was transcribed."));
}
