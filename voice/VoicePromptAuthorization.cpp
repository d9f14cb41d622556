#include "voice/VoicePromptAuthorization.h"

#include "platform/SpeechRecognizer.h"
#include "voice/VoicePromptDraftError.h"

#include <QPromise>

#include <functional>
#include <memory>

namespace {

using Answer = std::function<void(bool granted)>;

// Authorised goes on at once, undetermined asks, anything else is a refusal.
void settle(SpeechRecognizer::Access access, const std::function<void(Answer)> &ask, Answer next)
{
    switch (access) {
    case SpeechRecognizer::Access::authorized:
        next(true);
        return;
    case SpeechRecognizer::Access::notDetermined:
        ask(std::move(next));
        return;
    case SpeechRecognizer::Access::denied:
    case SpeechRecognizer::Access::restricted:
        next(false);
        return;
    }
}

void fail(QPromise<void> &promise, const VoicePromptDraftError &error)
{
    promise.setException(std::make_exception_ptr(error));
    promise.finish();
}

} // namespace

namespace VoicePromptAuthorization {

QFuture<void> requestVoiceCaptureAccessIfNeeded(SpeechRecognizer &recognizer)
{
    auto promise = std::make_shared<QPromise<void>>();
    promise->start();
    QFuture<void> future = promise->future();
    SpeechRecognizer *speech = &recognizer;
    settle(
        speech->speechRecognitionAccess(),
        [speech](Answer answer) { speech->requestSpeechRecognitionAccess(std::move(answer)); },
        [promise, speech](bool granted) {
            // A refusal is said as such, whatever else stands in the way: the user can change it.
            if (!granted) {
                fail(*promise, VoicePromptDraftError::speechRecognitionPermissionDenied());
                return;
            }
            settle(
                speech->microphoneAccess(),
                [speech](Answer answer) { speech->requestMicrophoneAccess(std::move(answer)); },
                [promise](bool granted) {
                    if (!granted)
                        fail(*promise, VoicePromptDraftError::microphonePermissionDenied());
                    else
                        promise->finish();
                });
        });
    return future;
}

} // namespace VoicePromptAuthorization
