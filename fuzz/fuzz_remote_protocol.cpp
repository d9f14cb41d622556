#include "remote/RemoteProtocol.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// What arrives over the remote editing socket, from either end: a stream of frames, cut wherever
// the socket's reads cut it, whose payloads are messages of either side. Besides crashes: a
// stream read in chunks reads as the stream read at once, nothing longer than the limit comes out
// of the reader, and a message that decodes is written in a form that decodes to the same message.
namespace {

using namespace RemoteProtocol;

void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

// The frames, and whether the stream ended with a header over the limit.
std::pair<std::vector<std::string>, bool> frames(const std::string &stream, std::size_t chunk)
{
    FrameReader reader;
    std::vector<std::string> payloads;
    try {
        for (std::size_t offset = 0; offset < stream.size(); offset += chunk) {
            reader.append(stream.data() + offset, std::min(chunk, stream.size() - offset));
            while (std::optional<std::string> payload = reader.nextFrame()) {
                require(payload->size() <= maximumFrameSize, "no frame over the limit");
                payloads.push_back(std::move(*payload));
            }
        }
    } catch (const ProtocolError &error) {
        require(error.kind() == ProtocolError::Kind::tooLarge,
                "only a header over the limit stops the reader");
        return {payloads, true};
    }
    return {payloads, false};
}

template<typename Message, typename Decode> void checkRoundTrip(const std::string &payload, Decode decode)
{
    Message message;
    try {
        message = decode(payload);
    } catch (const ProtocolError &error) {
        require(error.what()[0] != '\0' && !error.reason().empty(), "a refusal says why");
        return;
    }
    const std::string written = encode(message);
    const Message again = decode(written.substr(headerSize));
    require(again == message, "a message reads back as written");
    require(encode(again) == written, "a message is written the same way twice");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string input(reinterpret_cast<const char *>(data), size);
    // The input as a payload, the way the seeds are, from either side.
    checkRoundTrip<ClientMessage>(input, [](const std::string &bytes) { return decodeClientMessage(bytes); });
    checkRoundTrip<ServerMessage>(input, [](const std::string &bytes) { return decodeServerMessage(bytes); });
    // The input as a stream, cut into chunks of a size its first byte chooses.
    const std::size_t chunk = input.empty() ? 1 : std::size_t(static_cast<unsigned char>(input[0]) % 32 + 1);
    const auto whole = frames(input, input.size() + 1);
    const auto cut = frames(input, chunk);
    require(whole == cut, "the same frames in chunks as at once");
    for (const std::string &payload : whole.first) {
        checkRoundTrip<ClientMessage>(payload,
                                      [](const std::string &bytes) { return decodeClientMessage(bytes); });
        checkRoundTrip<ServerMessage>(payload,
                                      [](const std::string &bytes) { return decodeServerMessage(bytes); });
    }
    return 0;
}
