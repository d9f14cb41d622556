#include "fuzz/FuzzSupport.h"
#include "platform/PcmAudio.h"
#include "platform/SpeechEngine.h"

// An audio file handed to `tarvel transcribe`, and the microphone's stream: the WAV reader takes
// any header, and the converter any rate, channel count and sample format, in chunks cut anywhere.
namespace {
void convertInChunks(const QByteArray &input)
{
    if (input.size() < 4)
        return;
    const auto byte = [&input](int index) {
        return static_cast<unsigned char>(input.at(index));
    };
    const int sampleRate = 1000 + (byte(0) << 8 | byte(1)) * 3;
    const int channels = 1 + byte(2) % 8;
    const auto format = static_cast<PcmConverter::SampleFormat>(byte(3) % 4);
    PcmConverter converter(sampleRate, channels, format);
    qsizetype offset = 4;
    while (offset < input.size()) {
        const qsizetype length = std::min<qsizetype>(1 + byte(int(offset)) * 7, input.size() - offset);
        const QByteArray samples = converter.convert(QByteArrayView(input).sliced(offset, length));
        Fuzz::require(samples.size() % 2 == 0, "whole 16-bit samples");
        offset += length;
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = Fuzz::bytes(data, size);
    try {
        const QByteArray samples =
            PcmAudio::readSamplesFile(Fuzz::writeScratchFile(QStringLiteral("input.wav"), input));
        Fuzz::require(samples.size() % 2 == 0, "whole 16-bit samples");
    } catch (const SpeechEngineError &) {
        // A refusal names the file and says why; that is the answer for a file it cannot read.
    }
    convertInChunks(input);
    return 0;
}
