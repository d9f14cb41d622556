#include "fuzz/FuzzSupport.h"
#include "platform/linux/I3IpcMessage.h"
#include "platform/linux/I3IpcTree.h"

// What sway's IPC socket sends: a stream of frames, cut wherever the socket's reads cut it, whose
// payloads are the layout tree, the workspaces, command replies and window events. Besides
// crashes: a stream read in chunks reads as the stream read at once, and a frame written reads back.
namespace {

QList<I3Ipc::Message> decode(const QByteArray &stream, qsizetype chunk)
{
    I3Ipc::Decoder decoder;
    QList<I3Ipc::Message> messages;
    for (qsizetype offset = 0; offset < stream.size(); offset += chunk) {
        decoder.append(stream.mid(offset, chunk));
        while (std::optional<I3Ipc::Message> message = decoder.next())
            messages.append(*message);
    }
    return messages;
}

void read(const QByteArray &payload)
{
    I3IpcTree::windows(payload);
    I3IpcTree::workspaces(payload);
    I3IpcTree::commandsSucceeded(payload);
    I3IpcTree::windowEvent(payload);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = Fuzz::bytes(data, size);
    // The input as a payload, the way the seeds (recorded answers) are.
    read(input);
    // The input as a stream, cut into chunks of a size its first byte chooses.
    const qsizetype chunk = input.isEmpty() ? 1 : qsizetype(quint8(input.front()) % 32 + 1);
    const QList<I3Ipc::Message> whole = decode(input, input.size() + 1);
    const QList<I3Ipc::Message> cut = decode(input, chunk);
    Fuzz::require(whole.size() == cut.size(), "as many messages in chunks as at once");
    for (qsizetype index = 0; index < whole.size(); ++index) {
        Fuzz::require(whole[index].type == cut[index].type && whole[index].payload == cut[index].payload,
                      "the same messages in chunks as at once");
        read(whole[index].payload);
        // What is written reads back as written.
        const QList<I3Ipc::Message> again = decode(I3Ipc::encode(whole[index].type, whole[index].payload), 3);
        Fuzz::require(again.size() == 1 && again[0].payload == whole[index].payload, "a frame reads back");
    }
    return 0;
}
