#include "platform/linux/I3IpcMessage.h"

#include <cstring>

namespace I3Ipc {

QByteArray encode(quint32 type, const QByteArray &payload)
{
    QByteArray frame(magic, magicSize);
    const auto length = quint32(payload.size());
    frame.append(reinterpret_cast<const char *>(&length), sizeof length);
    frame.append(reinterpret_cast<const char *>(&type), sizeof type);
    return frame + payload;
}

void Decoder::append(const QByteArray &bytes)
{
    if (!hasFailed())
        m_buffer.append(bytes);
}

std::optional<Message> Decoder::next()
{
    if (hasFailed() || m_buffer.size() < magicSize)
        return std::nullopt;
    if (std::memcmp(m_buffer.constData(), magic, magicSize) != 0) {
        m_error = QStringLiteral("The window manager's IPC socket sent something that is not an i3 IPC "
                                 "message.");
        m_buffer.clear();
        return std::nullopt;
    }
    if (m_buffer.size() < headerSize)
        return std::nullopt;
    quint32 length = 0;
    quint32 type = 0;
    std::memcpy(&length, m_buffer.constData() + magicSize, sizeof length);
    std::memcpy(&type, m_buffer.constData() + magicSize + 4, sizeof type);
    if (length > maximumPayloadSize) {
        m_error = QStringLiteral("The window manager's IPC socket announced a message of %1 bytes, more "
                                 "than any answer it gives.")
                      .arg(length);
        m_buffer.clear();
        return std::nullopt;
    }
    if (m_buffer.size() - headerSize < qsizetype(length))
        return std::nullopt;
    Message message{type, m_buffer.mid(headerSize, qsizetype(length))};
    m_buffer.remove(0, headerSize + qsizetype(length));
    return message;
}

} // namespace I3Ipc
