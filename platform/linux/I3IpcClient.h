#pragma once

#include "platform/FileDescriptor.h"
#include "platform/linux/I3IpcMessage.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

class QSocketNotifier;

// A client of the i3 IPC socket (sway's SWAYSOCK, i3's I3SOCK). Requests are answered in order on
// one connection, so a request waits for its own reply; events come on a second connection, so
// they never stand between a request and its reply.
class I3IpcClient final : public QObject {
    Q_OBJECT

public:
    // How long a request may wait for the compositor; it answers in about a millisecond.
    static constexpr int replyTimeoutMs = 1000;

    // SWAYSOCK, else I3SOCK; empty when neither names a socket.
    static QString socketPathFromEnvironment();

    explicit I3IpcClient(QString socketPath, QObject *parent = nullptr);
    ~I3IpcClient() override;

    // Sends a message and waits for the reply's payload; nothing when the socket cannot be reached
    // or does not answer in time.
    std::optional<QByteArray> request(quint32 type, const QByteArray &payload = {});
    // Runs a command ("[con_id=5] focus"); true when every part of it succeeded.
    bool runCommand(const QString &command);

    // Starts listening for window events (on a connection of their own); false when the socket
    // refuses the subscription.
    bool subscribeToWindowEvents();

Q_SIGNALS:
    void windowEvent(const QByteArray &payload);

private:
    bool connectSocket(FileDescriptor &socket);
    void readEvents();

    QString m_socketPath;
    FileDescriptor m_requests;
    I3Ipc::Decoder m_replies;
    FileDescriptor m_events;
    std::unique_ptr<QSocketNotifier> m_eventsReadable;
    I3Ipc::Decoder m_eventStream;
};
