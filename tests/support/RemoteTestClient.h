#pragma once

#include "platform/UnixSocket.h"
#include "remote/RemoteProtocol.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>

#include <cerrno>
#include <optional>
#include <unistd.h>

// A client of the remote editing socket, in place of tarvel-edit on another machine. The server
// under test runs on this thread, so every wait lets its events run.
class RemoteTestClient final {
public:
    explicit RemoteTestClient(const QString &path)
        : m_descriptor(UnixSocket::connectTo(QFile::encodeName(path).toStdString()).descriptor)
    {
    }
    ~RemoteTestClient() { close(); }
    RemoteTestClient(const RemoteTestClient &) = delete;
    RemoteTestClient &operator=(const RemoteTestClient &) = delete;

    bool isConnected() const { return m_descriptor >= 0; }

    void sendBytes(const std::string &bytes)
    {
        std::size_t done = 0;
        QElapsedTimer waited;
        waited.start();
        while (m_descriptor >= 0 && done < bytes.size() && waited.elapsed() < 10000) {
            const ssize_t sent = UnixSocket::sendSome(m_descriptor, bytes.data() + done, bytes.size() - done);
            if (sent > 0)
                done += std::size_t(sent);
            else if (errno == EAGAIN)
                QTest::qWait(1);
            else
                break;
        }
    }
    void send(const RemoteProtocol::ClientMessage &message) { sendBytes(RemoteProtocol::encode(message)); }

    // The next message from the server; nothing when the connection ends first or none comes.
    std::optional<RemoteProtocol::ServerMessage> receive(int timeoutMs = 5000)
    {
        QElapsedTimer waited;
        waited.start();
        while (m_descriptor >= 0 && waited.elapsed() < timeoutMs) {
            if (const std::optional<std::string> payload = m_reader.nextFrame())
                return RemoteProtocol::decodeServerMessage(*payload);
            char buffer[65536];
            const ssize_t received = ::read(m_descriptor, buffer, sizeof buffer);
            if (received > 0)
                m_reader.append(buffer, std::size_t(received));
            else if (received == 0 || errno != EAGAIN)
                m_ended = true;
            if (m_ended)
                return std::nullopt;
            QTest::qWait(1);
        }
        return std::nullopt;
    }
    // Whether the server closed the connection (after what it sent).
    bool ended(int timeoutMs = 5000)
    {
        while (!m_ended && receive(timeoutMs))
            ;
        return m_ended;
    }

    void close()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
        m_descriptor = -1;
    }

private:
    int m_descriptor = -1;
    bool m_ended = false;
    RemoteProtocol::FrameReader m_reader;
};
