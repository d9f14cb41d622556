#include "platform/SpeechEngine.h"

#include "platform/CommandSpeechEngine.h"
#include "platform/SpeechRecognizer.h"

std::unique_ptr<SpeechEngine> SpeechEngine::create(const Options &options)
{
    const QString reason = unavailableReason(options.command);
    if (!reason.isEmpty())
        throw SpeechRecognizerError(SpeechRecognizerError::Kind::recognitionUnavailable, reason);
    if (!options.command.trimmed().isEmpty())
        return std::make_unique<CommandSpeechEngine>(options.command, options.commandTimeLimit);
    return createBuiltIn();
}

QString SpeechEngine::unavailableReason(const QString &command)
{
    if (!command.trimmed().isEmpty())
        return CommandSpeechEngine::unavailableReason(command);
    return builtInUnavailableReason();
}
