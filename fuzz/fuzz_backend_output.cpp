#include "fuzz/FuzzSupport.h"
#include "quicktasks/QuickTaskOutputHandler.h"

#include <fuzzer/FuzzedDataProvider.h>

// One backend's standard output (TARVEL_FUZZ_BACKEND) as a pipe delivers it: in chunks of any
// size. However it is cut, the answer, the thread and the transcript must be those of the output
// read at once.
namespace {
struct Reading {
    QByteArray transcript;
    std::optional<QString> finalResponse;
    std::optional<QString> threadID;
    friend bool operator==(const Reading &, const Reading &) = default;
};

template<typename NextChunk> Reading read(NextChunk nextChunk)
{
    QuickTaskOutputHandler handler(QuickTaskCLIBackend::TARVEL_FUZZ_BACKEND);
    Reading reading;
    for (QByteArray chunk = nextChunk(); !chunk.isEmpty(); chunk = nextChunk())
        reading.transcript += handler.consume(OutputStream::standardOutput, chunk).transcriptText;
    reading.transcript += handler.finish().transcriptText;
    reading.finalResponse = handler.finalResponse();
    reading.threadID = handler.threadID();
    return reading;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // The chunk sizes come from the input's end, the text from its front.
    FuzzedDataProvider provider(data, size);
    QByteArray fed;
    const Reading chunked = read([&] {
        const auto length = provider.ConsumeIntegralInRange<size_t>(1, 512);
        const std::vector<char> chunk = provider.ConsumeBytes<char>(length);
        fed.append(chunk.data(), static_cast<qsizetype>(chunk.size()));
        return QByteArray(chunk.data(), static_cast<qsizetype>(chunk.size()));
    });
    bool given = false;
    const Reading whole = read([&] { return std::exchange(given, true) ? QByteArray() : fed; });
    Fuzz::require(chunked == whole, "output read in chunks reads as when read at once");
    return 0;
}
