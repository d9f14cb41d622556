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

QString SpeechEngine::transcribe(const QByteArray &samples, std::stop_token stop)
{
    beginUtterance();
    const auto *data = reinterpret_cast<const qint16 *>(samples.constData());
    const qsizetype count = samples.size() / qsizetype(sizeof(qint16));
    constexpr qsizetype chunk = sampleRate / 10;
    for (qsizetype offset = 0; offset < count && !stop.stop_requested(); offset += chunk)
        feed(data + offset, std::min(chunk, count - offset));
    return finishUtterance(stop);
}
