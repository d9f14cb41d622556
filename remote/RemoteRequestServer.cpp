#include "remote/RemoteRequestServer.h"

#include "core/FileStore.h"
#include "core/TarvelError.h"
#include "errorlog/ErrorLogManager.h"
#include "platform/UnixSocket.h"
#include "remote/RemoteConnection.h"
#include "remote/RemoteProtocol.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QStandardPaths>
#include <QTimer>

#include <algorithm>
#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kRemoteEditing = QStringLiteral("Remote Editing");
const QString kOff = QStringLiteral("Remote editing is off.");
constexpr int kAcceptRetryMs = 1000;

QString shown(const QString &path)
{
    return QStringLiteral("\u201c%1\u201d").arg(QDir::toNativeSeparators(path));
}

// What came from the other machine, fit for a label: no control characters, never empty.
QString displayable(const std::string &text, const QString &fallback = {})
{
    QString result = QString::fromStdString(text);
    for (QChar &character : result) {
        if (character.category() == QChar::Other_Control || character.category() == QChar::Other_Format)
            character = QChar::ReplacementCharacter;
    }
    result = result.trimmed();
    return result.isEmpty() ? fallback : result;
}

std::optional<QString> displayable(const std::optional<std::string> &text)
{
    if (!text)
        return std::nullopt;
    const QString result = displayable(*text);
    return result.isEmpty() ? std::nullopt : std::optional<QString>(result);
}

// A socket left at path by a copy of Tarvel that stopped goes; anything else stays in the way.
void clearStaleSocket(const QString &path)
{
    const QByteArray encoded = QFile::encodeName(path);
    struct stat info {};
    if (::lstat(encoded.constData(), &info) != 0) {
        if (errno == ENOENT)
            return;
        throw SystemError(QStringLiteral("examine %1").arg(shown(path)), errno);
    }
    if (!S_ISSOCK(info.st_mode) || info.st_uid != ::geteuid())
        throw TarvelError(
            QStringLiteral("%1 is in the way of the remote editing socket and is not a socket of "
                           "yours; remove it and start Tarvel again.")
                .arg(shown(path)));
    const UnixSocket::Result probe = UnixSocket::connectTo(encoded.toStdString());
    if (probe.descriptor >= 0) {
        ::close(probe.descriptor);
        throw TarvelError(
            QStringLiteral("Another copy of Tarvel already takes remote requests at %1.").arg(shown(path)));
    }
    if (::unlink(encoded.constData()) != 0 && errno != ENOENT)
        throw SystemError(QStringLiteral("remove the old socket %1").arg(shown(path)), errno);
}

} // namespace

RemoteRequestServer::RemoteRequestServer(ErrorLogManager &errorLog, QObject *parent)
    : RemoteRequestServer(errorLog, Limits(), parent)
{
}

RemoteRequestServer::RemoteRequestServer(ErrorLogManager &errorLog, Limits limits, QObject *parent)
    : QObject(parent)
    , peerUserId(UnixSocket::peerUserId)
    , m_errorLog(errorLog)
    , m_limits(limits)
{
}

RemoteRequestServer::~RemoteRequestServer()
{
    stopListening();
}

QString RemoteRequestServer::defaultSocketPath()
{
    QString runtime = qEnvironmentVariable("XDG_RUNTIME_DIR");
    if (!QDir::isAbsolutePath(runtime))
        runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    return QDir(runtime).filePath(QString::fromLatin1(RemoteProtocol::localFolderName) + u'/' +
                                  QString::fromLatin1(RemoteProtocol::localSocketName));
}

bool RemoteRequestServer::listen(const QString &path)
{
    stopListening();
    m_path = path;
    try {
        const QString folder = QFileInfo(path).absolutePath();
        FileStore::ensurePrivateFolder(folder);
        FileStore::verifyPrivateFolder(folder);
        const std::string encoded = QFile::encodeName(path).toStdString();
        if (!UnixSocket::fitsAddress(encoded))
            throw TarvelError(QStringLiteral("The socket path %1 is too long for a Unix socket; point "
                                             "XDG_RUNTIME_DIR at a folder with a shorter path.")
                                  .arg(shown(path)));
        clearStaleSocket(path);
        const UnixSocket::Result listening = UnixSocket::listenAt(encoded);
        if (listening.descriptor < 0)
            throw SystemError(QStringLiteral("listen at %1").arg(shown(path)), listening.error);
        m_listening = listening.descriptor;
    } catch (const TarvelError &error) {
        recordFailure(kOff, error.description());
        return false;
    }
    m_acceptor = new QSocketNotifier(m_listening, QSocketNotifier::Read, this);
    connect(m_acceptor, &QSocketNotifier::activated, this, &RemoteRequestServer::acceptPending);
    return true;
}

void RemoteRequestServer::stopListening()
{
    if (m_listening < 0)
        return;
    delete m_acceptor;
    m_acceptor = nullptr;
    ::close(m_listening);
    m_listening = -1;
    ::unlink(QFile::encodeName(m_path).constData());
}

QList<ComposerRequest> RemoteRequestServer::waitingRequests() const
{
    QList<ComposerRequest> requests;
    for (const Entry &entry : m_entries) {
        if (entry.state == State::waiting)
            requests.append(entry.request);
    }
    std::stable_sort(
        requests.begin(), requests.end(),
        [](const ComposerRequest &a, const ComposerRequest &b) { return a.createdAt < b.createdAt; });
    return requests;
}

int RemoteRequestServer::waitingRequestCount() const
{
    return int(std::count_if(m_entries.begin(), m_entries.end(),
                             [](const Entry &entry) { return entry.state == State::waiting; }));
}

bool RemoteRequestServer::isWaiting(const QUuid &id) const
{
    return std::any_of(m_entries.begin(), m_entries.end(), [&id](const Entry &entry) {
        return entry.state == State::waiting && entry.request.id == id;
    });
}

std::optional<QString> RemoteRequestServer::answer(const QUuid &id, ComposerResponse::Disposition disposition,
                                                   const std::optional<QString> &text)
{
    Entry *entry = waitingEntry(id);
    if (!entry)
        return QStringLiteral("The terminal on the other machine stopped waiting, so the answer could not be "
                              "sent.");
    RemoteProtocol::Answer message;
    message.disposition = disposition == ComposerResponse::Disposition::submitted
                              ? RemoteProtocol::Answer::Disposition::submitted
                              : RemoteProtocol::Answer::Disposition::cancelled;
    if (text)
        message.text = text->toStdString();
    std::string frame;
    try {
        frame = RemoteProtocol::encode(message);
    } catch (const RemoteProtocol::ProtocolError &) {
        return QStringLiteral("The text is larger than %1 MB, more than can go back to %2.")
            .arg(RemoteProtocol::maximumFrameSize / (1024 * 1024))
            .arg(entry->request.remote ? entry->request.remote->host : QString());
    }
    RemoteConnection *connection = entry->connection;
    std::erase_if(m_entries, [connection](const Entry &each) { return each.connection == connection; });
    connection->sendAndClose(frame);
    return std::nullopt;
}

void RemoteRequestServer::cancelAll()
{
    const std::string cancelled = RemoteProtocol::encode(RemoteProtocol::Answer{});
    std::vector<Entry> entries;
    entries.swap(m_entries);
    for (const Entry &entry : entries) {
        if (entry.state == State::waiting)
            entry.connection->sendAndClose(cancelled);
        else if (entry.state == State::receiving)
            entry.connection->deleteLater();
    }
}

void RemoteRequestServer::acceptPending()
{
    for (;;) {
        const UnixSocket::Result accepted = UnixSocket::accept(m_listening);
        if (accepted.descriptor < 0) {
            if (accepted.error != EAGAIN && accepted.error != ECONNABORTED) {
                // Out of descriptors, most likely: wait a moment rather than spin on the notifier.
                recordFailure(QStringLiteral("A remote editor request could not be taken."),
                              SystemError(QStringLiteral("accept a connection at %1").arg(shown(m_path)),
                                          accepted.error)
                                  .description());
                m_acceptor->setEnabled(false);
                QTimer::singleShot(kAcceptRetryMs, m_acceptor,
                                   [acceptor = m_acceptor] { acceptor->setEnabled(true); });
            }
            return;
        }
        const std::optional<uid_t> peer = peerUserId ? peerUserId(accepted.descriptor) : std::nullopt;
        if (!peer || *peer != ::geteuid()) {
            ::close(accepted.descriptor);
            recordFailure(
                QStringLiteral("Refused a connection to the remote editing socket from another user."),
                QStringLiteral("The connecting process runs as %1; Tarvel takes remote editor requests "
                               "only from your own processes (user ID %2).")
                    .arg(peer ? QStringLiteral("user ID %1").arg(*peer) : QStringLiteral("an unknown user"))
                    .arg(::geteuid()));
            continue;
        }
        auto *connection = new RemoteConnection(accepted.descriptor, m_limits.stalledFrame, this);
        connection->onFrame = [this, connection](const std::string &payload) {
            frameReceived(connection, payload);
        };
        connection->onFrameError = [this, connection](const RemoteProtocol::ProtocolError &error) {
            frameTooLarge(connection, error);
        };
        connection->onStalled = [this, connection] {
            stalled(connection);
        };
        connection->onPeerClosed = [this, connection] {
            peerClosed(connection);
        };
        m_entries.push_back({connection, State::receiving, {}});
    }
}

void RemoteRequestServer::frameReceived(RemoteConnection *connection, const std::string &payload)
{
    Entry *entry = entryFor(connection);
    if (!entry)
        return;
    RemoteProtocol::ClientMessage message;
    try {
        message = RemoteProtocol::decodeClientMessage(payload);
    } catch (const RemoteProtocol::ProtocolError &error) {
        refuse(*entry, error.reason(),
               QStringLiteral("Refused a remote editor request that Tarvel could not read."),
               QString::fromStdString(error.what()));
        return;
    }
    if (std::holds_alternative<RemoteProtocol::Withdrawal>(message)) {
        const bool withdrawn = entry->state == State::waiting;
        discard(connection);
        if (withdrawn)
            Q_EMIT requestsChanged();
        return;
    }
    if (entry->state == State::waiting) {
        refuse(*entry, "a second request came over one connection",
               QStringLiteral("Refused a remote editor request that Tarvel could not read."),
               QStringLiteral("A second request came over the connection of one that was waiting; both were "
                              "dropped."));
        Q_EMIT requestsChanged();
        return;
    }
    const auto &request = std::get<RemoteProtocol::Request>(message);
    ComposerRequest composed;
    composed.id = QUuid::createUuid();
    composed.createdAt = QDateTime::currentDateTimeUtc();
    composed.initialText = QString::fromStdString(request.initialText);
    // Its folder and file are the other machine's: shown, never used as paths here.
    composed.remote = RemoteOrigin{displayable(request.host, QStringLiteral("another machine")),
                                   displayable(request.fileName), displayable(request.workingDirectory)};
    receiveRequest(*entry, std::move(composed));
}

void RemoteRequestServer::frameTooLarge(RemoteConnection *connection,
                                        const RemoteProtocol::ProtocolError &error)
{
    Entry *entry = entryFor(connection);
    if (!entry)
        return;
    const bool withdrawn = entry->state == State::waiting;
    const auto megabytes = RemoteProtocol::maximumFrameSize / (1024 * 1024);
    refuse(*entry, "the request is larger than " + std::to_string(megabytes) + " MB",
           QStringLiteral("Refused a remote editor request larger than %1 MB.").arg(megabytes),
           QString::fromStdString(error.what()) +
               QStringLiteral(" tarvel-edit on the other machine opened its terminal editor instead."));
    if (withdrawn)
        Q_EMIT requestsChanged();
}

void RemoteRequestServer::receiveRequest(Entry &entry, ComposerRequest request)
{
    const QString host = request.remote->host;
    if (waitingRequestCount() >= m_limits.waitingRequests) {
        refuse(
            entry,
            "too many requests from other machines are waiting (at most " +
                std::to_string(m_limits.waitingRequests) + ")",
            QStringLiteral("Refused a remote editor request: too many are waiting."),
            QStringLiteral("It came from %1, which opened its terminal editor instead. At most %2 requests "
                           "from other machines wait at once; answer or cancel one before sending more.")
                .arg(host)
                .arg(m_limits.waitingRequests));
        return;
    }
    if (completeRequest)
        completeRequest(request);
    entry.request = std::move(request);
    entry.state = State::waiting;
    RemoteConnection *connection = entry.connection;
    connection->setExpectingFrame(false);
    // May find the other side gone and discard the entry: nothing below touches it.
    connection->send(RemoteProtocol::encode(RemoteProtocol::Accepted{}));
    Q_EMIT requestsChanged();
}

void RemoteRequestServer::refuse(Entry &entry, const std::string &reason, const QString &title,
                                 const QString &detail)
{
    recordFailure(title, detail);
    RemoteConnection *connection = entry.connection;
    std::erase_if(m_entries, [connection](const Entry &each) { return each.connection == connection; });
    connection->sendAndClose(RemoteProtocol::encode(RemoteProtocol::Refusal{reason}));
}

void RemoteRequestServer::peerClosed(RemoteConnection *connection)
{
    const Entry *entry = entryFor(connection);
    const bool withdrawn = entry && entry->state == State::waiting;
    discard(connection);
    if (withdrawn)
        Q_EMIT requestsChanged();
}

void RemoteRequestServer::stalled(RemoteConnection *connection)
{
    Entry *entry = entryFor(connection);
    if (!entry)
        return;
    const bool withdrawn = entry->state == State::waiting;
    const qint64 seconds = std::chrono::duration_cast<std::chrono::seconds>(m_limits.stalledFrame).count();
    const QString detail =
        connection->bufferedSize() == 0
            ? QStringLiteral("Nothing came over a new connection for %1 seconds, so it was closed.")
                  .arg(seconds)
            : QStringLiteral("Nothing more came for %1 seconds after the first %2 bytes of a message, so the "
                             "connection was closed.")
                  .arg(seconds)
                  .arg(connection->bufferedSize());
    refuse(*entry, "the request stopped arriving for " + std::to_string(seconds) + " seconds",
           QStringLiteral("Dropped a remote editor request that stopped arriving."), detail);
    if (withdrawn)
        Q_EMIT requestsChanged();
}

void RemoteRequestServer::discard(RemoteConnection *connection)
{
    std::erase_if(m_entries, [connection](const Entry &each) { return each.connection == connection; });
    connection->close();
    connection->deleteLater();
}

RemoteRequestServer::Entry *RemoteRequestServer::entryFor(const RemoteConnection *connection)
{
    const auto found = std::find_if(m_entries.begin(), m_entries.end(), [connection](const Entry &entry) {
        return entry.connection == connection;
    });
    return found == m_entries.end() ? nullptr : &*found;
}

RemoteRequestServer::Entry *RemoteRequestServer::waitingEntry(const QUuid &id)
{
    const auto found = std::find_if(m_entries.begin(), m_entries.end(), [&id](const Entry &entry) {
        return entry.state == State::waiting && entry.request.id == id;
    });
    return found == m_entries.end() ? nullptr : &*found;
}

void RemoteRequestServer::recordFailure(const QString &title, const QString &detail)
{
    m_errorLog.record(title, detail, kRemoteEditing);
}
