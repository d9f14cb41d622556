#include "platform/SpeechEngine.h"
#include "platform/SpeechRecognizer.h"

// The Mac's recogniser listens to the microphone only (MacSpeechRecognizer); recordings need
// the user's recogniser command.
std::unique_ptr<SpeechEngine> SpeechEngine::createBuiltIn()
{
    throw SpeechRecognizerError(SpeechRecognizerError::Kind::recognitionUnavailable,
                                builtInUnavailableReason());
}

QString SpeechEngine::builtInUnavailableReason()
{
    return QStringLiteral(
        "On the Mac, recordings are transcribed by a speech recogniser command of your own: "
        "set one in Tarvel's settings.");
}
