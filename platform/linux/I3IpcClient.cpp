#include "platform/linux/I3IpcClient.h"

#include "platform/NonBlockingRead.h"
#include "platform/UnixSocket.h"
#include "platform/linux/I3IpcTree.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QSocketNotifier>

#include <cerrno>
#include <poll.h>

// QT_LOGGING_RULES="tarvel.i3ipc.debug=true" shows what is asked of the compositor.
Q_LOGGING_CATEGORY(lcI3Ipc, "tarvel.i3ipc", QtWarningMsg)

namespace {

// Whether the socket is ready for the events (or has an error or hang-up to tell) in time.
bool waitFor(int descriptor, short events, const QDeadlineTimer &deadline)
{
    pollfd ready{descriptor, events, 0};
    while (true) {
        const int result = ::poll(&ready, 1, int(deadline.remainingTime()));
        if (result > 0)
            return true;
        if (result == 0 || errno != EINTR)
            return false;
    }
}

bool sendAll(int descriptor, const QByteArray &bytes, const QDeadlineTimer &deadline)
{
    qsizetype sent = 0;
    while (sent < bytes.size()) {
        const ssize_t count =
            UnixSocket::sendSome(descriptor, bytes.constData() + sent, size_t(bytes.size() - sent));
        if (count > 0) {
            sent += count;
            continue;
        }
        // A connection still being made is writable once it is made.
        if (count < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
            return false;
        if (count < 0 && errno != EINTR && !waitFor(descriptor, POLLOUT, deadline))
            return false;
    }
    return true;
}

// Appends what has arrived; false once the compositor closed the connection or it failed.
bool receive(FileDescriptor &socket, I3Ipc::Decoder &decoder)
{
    QByteArray bytes;
    NonBlockingRead::available(socket, &bytes);
    decoder.append(bytes);
    return socket.isValid();
}

} // namespace

QString I3IpcClient::socketPathFromEnvironment()
{
    const QString sway = qEnvironmentVariable("SWAYSOCK");
    return sway.isEmpty() ? qEnvironmentVariable("I3SOCK") : sway;
}

I3IpcClient::I3IpcClient(QString socketPath, QObject *parent)
    : QObject(parent)
    , m_socketPath(std::move(socketPath))
{
}

I3IpcClient::~I3IpcClient() = default;

bool I3IpcClient::connectSocket(FileDescriptor &socket)
{
    if (socket.isValid())
        return true;
    if (m_socketPath.isEmpty())
        return false;
    socket.reset(UnixSocket::connectTo(QFile::encodeName(m_socketPath).toStdString()).descriptor);
    return socket.isValid();
}

std::optional<QByteArray> I3IpcClient::request(quint32 type, const QByteArray &payload)
{
    if (!connectSocket(m_requests))
        return std::nullopt;
    // A late reply would be taken for the next request's: a failed request starts over on a new
    // connection, as does one whose reply came with the compositor's hang-up.
    const auto dropConnection = [this] {
        m_requests.reset();
        m_replies = I3Ipc::Decoder();
    };
    const QDeadlineTimer deadline(replyTimeoutMs);
    bool connected = sendAll(m_requests.get(), I3Ipc::encode(type, payload), deadline);
    while (connected && !m_replies.hasFailed() && waitFor(m_requests.get(), POLLIN, deadline)) {
        connected = receive(m_requests, m_replies);
        while (std::optional<I3Ipc::Message> message = m_replies.next()) {
            if (message->type != type)
                continue;
            if (!connected)
                dropConnection();
            return message->payload;
        }
    }
    dropConnection();
    return std::nullopt;
}

bool I3IpcClient::runCommand(const QString &command)
{
    const std::optional<QByteArray> reply = request(I3Ipc::runCommand, command.toUtf8());
    qCDebug(lcI3Ipc) << command << (reply ? *reply : QByteArrayLiteral("(no answer)"));
    return reply && I3IpcTree::commandsSucceeded(*reply);
}

bool I3IpcClient::subscribeToWindowEvents()
{
    if (m_eventsReadable)
        return true;
    if (!connectSocket(m_events))
        return false;
    const QDeadlineTimer deadline(replyTimeoutMs);
    bool connected =
        sendAll(m_events.get(), I3Ipc::encode(I3Ipc::subscribe, QByteArrayLiteral("[\"window\"]")), deadline);
    while (connected && waitFor(m_events.get(), POLLIN, deadline)) {
        connected = receive(m_events, m_eventStream);
        if (std::optional<I3Ipc::Message> reply = m_eventStream.next()) {
            if (!connected || reply->type != I3Ipc::subscribe ||
                !QJsonDocument::fromJson(reply->payload).object().value(u"success").toBool())
                break;
            m_eventsReadable = std::make_unique<QSocketNotifier>(m_events.get(), QSocketNotifier::Read);
            connect(m_eventsReadable.get(), &QSocketNotifier::activated, this, &I3IpcClient::readEvents);
            readEvents();
            return true;
        }
    }
    m_events.reset();
    m_eventStream = I3Ipc::Decoder();
    return false;
}

void I3IpcClient::readEvents()
{
    const bool connected = receive(m_events, m_eventStream);
    while (std::optional<I3Ipc::Message> message = m_eventStream.next()) {
        if (message->type == I3Ipc::windowEvent)
            Q_EMIT windowEvent(message->payload);
    }
    // The compositor went away (or broke the framing): a later subscription starts over.
    if (!connected || m_eventStream.hasFailed()) {
        m_eventsReadable->setEnabled(false);
        m_eventsReadable.release()->deleteLater();
        m_events.reset();
        m_eventStream = I3Ipc::Decoder();
    }
}
