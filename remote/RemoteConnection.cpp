#include "remote/RemoteConnection.h"

#include "platform/UnixSocket.h"

#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>

#include <cerrno>
#include <unistd.h>

RemoteConnection::RemoteConnection(int descriptor, std::chrono::milliseconds stallTimeout, QObject *parent)
    : QObject(parent)
    , m_descriptor(descriptor)
    , m_readable(new QSocketNotifier(descriptor, QSocketNotifier::Read, this))
    , m_writable(new QSocketNotifier(descriptor, QSocketNotifier::Write, this))
    , m_stall(new QTimer(this))
{
    m_writable->setEnabled(false);
    m_stall->setSingleShot(true);
    m_stall->setInterval(stallTimeout);
    connect(m_readable, &QSocketNotifier::activated, this, &RemoteConnection::readAvailable);
    connect(m_writable, &QSocketNotifier::activated, this, &RemoteConnection::writePending);
    connect(m_stall, &QTimer::timeout, this, [this] {
        if (onStalled)
            onStalled();
    });
    updateStallTimer();
}

RemoteConnection::~RemoteConnection()
{
    close();
}

void RemoteConnection::setExpectingFrame(bool expecting)
{
    m_expectingFrame = expecting;
    updateStallTimer();
}

void RemoteConnection::send(const std::string &frame)
{
    if (!isOpen())
        return;
    m_outgoing += frame;
    writePending();
}

void RemoteConnection::sendAndClose(const std::string &frame)
{
    m_closing = true;
    m_readable->setEnabled(false);
    m_stall->stop();
    m_outgoing += frame;
    writePending();
}

void RemoteConnection::close()
{
    if (m_descriptor < 0)
        return;
    m_readable->setEnabled(false);
    m_writable->setEnabled(false);
    m_stall->stop();
    ::close(m_descriptor);
    m_descriptor = -1;
}

void RemoteConnection::readAvailable()
{
    // A handler may close the connection or have it deleted later; nothing here may outlive that.
    const QPointer<RemoteConnection> alive(this);
    char buffer[65536];
    while (alive && isOpen() && !m_closing) {
        const ssize_t received = ::read(m_descriptor, buffer, sizeof buffer);
        if (received < 0 && errno == EINTR)
            continue;
        if (received < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            break;
        if (received <= 0) {
            close();
            if (onPeerClosed)
                onPeerClosed();
            return;
        }
        m_reader.append(buffer, std::size_t(received));
        try {
            while (alive && isOpen() && !m_closing) {
                const std::optional<std::string> payload = m_reader.nextFrame();
                if (!payload)
                    break;
                if (onFrame)
                    onFrame(*payload);
            }
        } catch (const RemoteProtocol::ProtocolError &error) {
            m_readable->setEnabled(false);
            if (onFrameError)
                onFrameError(error);
            return;
        }
    }
    if (alive)
        updateStallTimer();
}

void RemoteConnection::writePending()
{
    while (isOpen() && m_written < m_outgoing.size()) {
        const ssize_t sent =
            UnixSocket::sendSome(m_descriptor, m_outgoing.data() + m_written, m_outgoing.size() - m_written);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
            m_writable->setEnabled(true);
            return;
        }
        if (sent < 0) {
            close();
            if (!m_closing && onPeerClosed)
                onPeerClosed();
            break;
        }
        m_written += std::size_t(sent);
    }
    m_writable->setEnabled(false);
    m_outgoing.clear();
    m_written = 0;
    if (m_closing) {
        close();
        deleteLater();
    }
}

void RemoteConnection::updateStallTimer()
{
    if (!isOpen() || m_closing) {
        m_stall->stop();
        return;
    }
    if (m_expectingFrame || m_reader.holdsPartialFrame())
        m_stall->start(); // from the last byte that came
    else
        m_stall->stop();
}
