#include "voice/TranscribeCommand.h"

#include "core/UserDefaults.h"
#include "platform/PcmAudio.h"
#include "platform/SpeechEngine.h"
#include "settings/AppSettings.h"

namespace TranscribeCommand {

int run(const QStringList &arguments, QTextStream &out, QTextStream &err)
{
    if (arguments.size() != 1 || arguments.first().startsWith(u'-')) {
        err << "Usage: tarvel transcribe FILE\n"
               "FILE is a WAV recording or raw 16 kHz mono 16-bit little-endian audio (.raw, .pcm).\n";
        return 2;
    }
    try {
        const QByteArray samples = PcmAudio::readSamplesFile(arguments.first());
        const SpeechEngine::Options options{AppSettings(UserDefaults::standard()).speechRecognizerCommand()};
        const std::unique_ptr<SpeechEngine> engine = SpeechEngine::create(options);
        out << engine->transcribe(samples, std::stop_token()) << '\n';
        return 0;
    } catch (const TarvelError &error) {
        err << "tarvel: " << error.description() << '\n';
        return 1;
    }
}

} // namespace TranscribeCommand
