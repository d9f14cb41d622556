#pragma once

#include "core/ComposerRequest.h"
#include "core/ComposerResponse.h"
#include "remote/RemoteProtocol.h"

#include <QList>
#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <sys/types.h>
#include <vector>

class ErrorLogManager;
class QSocketNotifier;
class RemoteConnection;

// The second intake of editor requests: a Unix socket in the private runtime folder
// ($XDG_RUNTIME_DIR/tarvel/remote.sock) that ssh forwards to another machine, where tarvel-edit
// sends its request over it (RemoteProtocol). Only the user's own processes are served. Each
// request waits with its connection open, which is how it is answered; the connection closing
// before that withdraws it. Refusals and dropped connections are recorded in the error log.
class RemoteRequestServer final : public QObject {
    Q_OBJECT

public:
    struct Limits {
        // Requests accepted and not answered yet, the one on screen included.
        int waitingRequests = 8;
        // How long a frame may stop arriving (and a new connection stay silent).
        std::chrono::milliseconds stalledFrame{10000};
    };

    explicit RemoteRequestServer(ErrorLogManager &errorLog, QObject *parent = nullptr);
    RemoteRequestServer(ErrorLogManager &errorLog, Limits limits, QObject *parent = nullptr);
    ~RemoteRequestServer() override;

    // The runtime folder's tarvel/remote.sock: XDG_RUNTIME_DIR, else Qt's runtime location.
    static QString defaultSocketPath();
    // Makes the folder (0700) and listens at path (0600). A folder that is a link, another
    // user's or writable by others is refused, like the request folders. Failures are recorded
    // and leave remote editing off; returns whether it listens.
    bool listen(const QString &path = defaultSocketPath());
    // Stops taking connections and removes the socket; waiting requests stay until answered.
    void stopListening();
    bool isListening() const { return m_listening >= 0; }
    const QString &socketPath() const { return m_path; }

    // Accepted and unanswered, oldest first.
    QList<ComposerRequest> waitingRequests() const;
    int waitingRequestCount() const;
    bool isWaiting(const QUuid &id) const;
    // Sends the answer and closes the connection. The reason as a sentence when it cannot go:
    // the helper stopped waiting, or the text is too large; the request then stays as it was.
    std::optional<QString> answer(const QUuid &id, ComposerResponse::Disposition disposition,
                                  const std::optional<QString> &text);
    // Answers every waiting request as cancelled.
    void cancelAll();

    // Who is on the other end of a connection; the platform's answer unless a test stands in
    // another user.
    std::function<std::optional<uid_t>(int descriptor)> peerUserId;
    // Completes a request as it arrives: the terminal in front is the one running ssh.
    std::function<void(ComposerRequest &request)> completeRequest;

Q_SIGNALS:
    // A request arrived or was withdrawn.
    void requestsChanged();

private:
    enum class State { receiving, waiting, closing };
    struct Entry {
        RemoteConnection *connection = nullptr;
        State state = State::receiving;
        ComposerRequest request;
    };

    void acceptPending();
    void frameReceived(RemoteConnection *connection, const std::string &payload);
    void frameTooLarge(RemoteConnection *connection, const RemoteProtocol::ProtocolError &error);
    void receiveRequest(Entry &entry, ComposerRequest request);
    void refuse(Entry &entry, const std::string &reason, const QString &title, const QString &detail);
    void peerClosed(RemoteConnection *connection);
    void stalled(RemoteConnection *connection);
    void discard(RemoteConnection *connection);
    Entry *entryFor(const RemoteConnection *connection);
    Entry *waitingEntry(const QUuid &id);
    void recordFailure(const QString &title, const QString &detail);

    ErrorLogManager &m_errorLog;
    Limits m_limits;
    QString m_path;
    int m_listening = -1;
    QSocketNotifier *m_acceptor = nullptr;
    std::vector<Entry> m_entries;
};
