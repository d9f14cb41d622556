#include "platform/linux/I3IpcClient.h"

#include "platform/linux/I3IpcTree.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalSocket>
#include <QLoggingCategory>

// QT_LOGGING_RULES="tarvel.i3ipc.debug=true" shows what is asked of the compositor.
Q_LOGGING_CATEGORY(lcI3Ipc, "tarvel.i3ipc", QtWarningMsg)

QString I3IpcClient::socketPathFromEnvironment()
{
    const QString sway = qEnvironmentVariable("SWAYSOCK");
    return sway.isEmpty() ? qEnvironmentVariable("I3SOCK") : sway;
}

I3IpcClient::I3IpcClient(QString socketPath, QObject *parent)
    : QObject(parent)
    , m_socketPath(std::move(socketPath))
    , m_requests(std::make_unique<QLocalSocket>())
{
}

I3IpcClient::~I3IpcClient() = default;

bool I3IpcClient::connectSocket(QLocalSocket &socket)
{
    if (socket.state() == QLocalSocket::ConnectedState)
        return true;
    if (m_socketPath.isEmpty())
        return false;
    socket.abort();
    socket.connectToServer(m_socketPath);
    return socket.waitForConnected(replyTimeoutMs);
}

std::optional<QByteArray> I3IpcClient::request(quint32 type, const QByteArray &payload)
{
    if (!connectSocket(*m_requests))
        return std::nullopt;
    m_requests->write(I3Ipc::encode(type, payload));
    const QDeadlineTimer deadline(replyTimeoutMs);
    while (true) {
        m_replies.append(m_requests->readAll());
        while (std::optional<I3Ipc::Message> message = m_replies.next()) {
            if (message->type == type)
                return message->payload;
        }
        if (m_replies.hasFailed() || deadline.hasExpired() ||
            !m_requests->waitForReadyRead(int(deadline.remainingTime())))
            break;
    }
    // A late reply would be taken for the next request's: start over on a new connection.
    m_requests->abort();
    m_replies = I3Ipc::Decoder();
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
    if (m_events)
        return m_events->state() == QLocalSocket::ConnectedState;
    m_events = new QLocalSocket(this);
    if (!connectSocket(*m_events))
        return false;
    m_events->write(I3Ipc::encode(I3Ipc::subscribe, QByteArrayLiteral("[\"window\"]")));
    const QDeadlineTimer deadline(replyTimeoutMs);
    while (!deadline.hasExpired() && m_events->waitForReadyRead(int(deadline.remainingTime()))) {
        m_eventStream.append(m_events->readAll());
        if (std::optional<I3Ipc::Message> reply = m_eventStream.next()) {
            if (reply->type != I3Ipc::subscribe ||
                !QJsonDocument::fromJson(reply->payload).object().value(u"success").toBool())
                break;
            connect(m_events, &QLocalSocket::readyRead, this, &I3IpcClient::readEvents);
            readEvents();
            return true;
        }
    }
    m_events->abort();
    return false;
}

void I3IpcClient::readEvents()
{
    m_eventStream.append(m_events->readAll());
    while (std::optional<I3Ipc::Message> message = m_eventStream.next()) {
        if (message->type == I3Ipc::windowEvent)
            Q_EMIT windowEvent(message->payload);
    }
}
