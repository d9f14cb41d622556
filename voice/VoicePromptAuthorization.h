#pragma once

#include <QFuture>

class SpeechRecognizer;

// Access to speech recognition and the microphone before a capture: speech recognition is
// settled first, then the microphone. Where the system asks the user, it asks now.
namespace VoicePromptAuthorization {

// Finishes when both are granted; otherwise fails with a VoicePromptDraftError:
// speechRecognitionPermissionDenied (or speechRecognitionUnavailable when the recogniser
// says what is missing) or microphonePermissionDenied. The recogniser must outlive the
// answer.
QFuture<void> requestVoiceCaptureAccessIfNeeded(SpeechRecognizer &recognizer);

} // namespace VoicePromptAuthorization
