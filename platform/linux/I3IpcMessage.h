#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <optional>

// The framing of the i3 IPC protocol, which sway speaks on SWAYSOCK (and i3 on I3SOCK): the magic
// "i3-ipc", the payload's length and the message type as 32-bit integers in the machine's own byte
// order, then the payload, JSON for everything but a command's text.
namespace I3Ipc {

enum MessageType : quint32 {
    runCommand = 0,
    getWorkspaces = 1,
    subscribe = 2,
    getOutputs = 3,
    getTree = 4,
};

// Events carry the event's number with the high bit set.
inline constexpr quint32 eventFlag = 0x80000000u;
inline constexpr quint32 windowEvent = eventFlag | 3u;

inline constexpr char magic[] = "i3-ipc";
inline constexpr qsizetype magicSize = 6;
inline constexpr qsizetype headerSize = magicSize + 8;
// A tree of a few hundred windows is a few hundred kilobytes; anything near this is not sway.
inline constexpr quint32 maximumPayloadSize = 64u * 1024u * 1024u;

struct Message {
    quint32 type = 0;
    QByteArray payload;

    bool isEvent() const { return (type & eventFlag) != 0; }
};

QByteArray encode(quint32 type, const QByteArray &payload);

// Splits a byte stream into messages, however it is cut. A stream that breaks the framing (a
// wrong magic, an oversized length) stops the decoder for good: what follows cannot be trusted.
class Decoder final {
public:
    void append(const QByteArray &bytes);
    // The next whole message, or nothing until more bytes arrive (or after a failure).
    std::optional<Message> next();

    bool hasFailed() const { return !m_error.isEmpty(); }
    // Why the stream was refused, as a sentence; empty while it is well formed.
    QString error() const { return m_error; }

private:
    QByteArray m_buffer;
    QString m_error;
};

} // namespace I3Ipc
