#include "app/RequestIntake.h"

#include "core/FileStore.h"

#include "core/Clock.h"
#include "core/JSONCoding.h"
#include "core/TarvelError.h"
#include "errorlog/ErrorLogManager.h"
#include "remote/RemoteRequestServer.h"

#include <QFileInfo>

namespace {
const QString kExternalEditor = QStringLiteral("External Editor");
const QString kRequestQueue = QStringLiteral("Request Queue");
} // namespace

RequestIntake::RequestIntake(ErrorLogManager &errorLog, const Clock &clock, QObject *parent)
    : QObject(parent)
    , m_errorLog(errorLog)
    , m_clock(clock)
{
}

std::optional<ComposerRequest> RequestIntake::takeNextRequest()
{
    // A folder that cannot be served holds up nothing that came over the socket.
    QList<PendingRequest> pending;
    try {
        pending = recoverablePendingRequests();
        m_reportedUnsafeFolder.clear();
    } catch (const UnsafeFolderError &error) {
        // Refused, not served: said once, not at every wake-up while it stays so.
        if (error.description() != m_reportedUnsafeFolder) {
            m_reportedUnsafeFolder = error.description();
            presentErrorAlert(QStringLiteral("Refused to serve editor requests from an unsafe folder."),
                              error.description(), kRequestQueue);
        }
    } catch (const TarvelError &error) {
        presentErrorAlert(QStringLiteral("Failed to read pending requests."), error.description(),
                          kRequestQueue);
    }
    QList<ComposerRequest> remote = remoteRequests();
    m_queuedRequests.clear();
    if (pending.isEmpty() && remote.isEmpty()) {
        Q_EMIT queueChanged();
        return std::nullopt;
    }
    // Oldest first across both: a file by its birth, a remote request by its arrival.
    const bool fileFirst =
        !pending.isEmpty() && (remote.isEmpty() || RequestFileIO::creationTime(pending.constFirst().url) <=
                                                       remote.constFirst().createdAt.toMSecsSinceEpoch());
    const ComposerRequest first = fileFirst ? pending.takeFirst().request : remote.takeFirst();
    for (const PendingRequest &entry : std::as_const(pending))
        m_queuedRequests.append(entry.request);
    m_queuedRequests.append(remote);
    if (first.cwd)
        Q_EMIT workingDirectoryNoted(*first.cwd);
    Q_EMIT queueChanged();
    return first;
}

void RequestIntake::loadQueuedRequests(const QUuid &onScreen)
{
    try {
        QList<ComposerRequest> queued;
        for (const PendingRequest &entry : recoverablePendingRequests(onScreen))
            queued.append(entry.request);
        m_queuedRequests = queued + remoteRequests(onScreen);
        Q_EMIT queueChanged();
    } catch (const TarvelError &) {
        // Keep the queue we had; the next notification scans again.
    }
}

QList<ComposerRequest> RequestIntake::remoteRequests(const std::optional<QUuid> &onScreen) const
{
    QList<ComposerRequest> requests = m_remote ? m_remote->waitingRequests() : QList<ComposerRequest>();
    if (onScreen)
        requests.removeIf([&onScreen](const ComposerRequest &request) { return request.id == *onScreen; });
    return requests;
}

QList<PendingRequest> RequestIntake::recoverablePendingRequests(const std::optional<QUuid> &onScreen)
{
    QList<PendingRequest> result;
    for (const QString &url : RequestFileIO::pendingRequestURLs()) {
        if (const auto id = RequestFileIO::requestIdentifier(url)) {
            if (RequestFileIO::completedRequestMarkerExists(*id) || RequestFileIO::responseExists(*id)) {
                retireAnswered(*id);
                continue;
            }
        }
        ComposerRequest request;
        try {
            request = RequestFileIO::readRequest(url);
        } catch (const TarvelError &error) {
            if (!QFileInfo::exists(url))
                continue; // withdrawn by its helper between listing and reading
            quarantineMalformedPendingRequest(url, error.description());
            continue;
        }
        if (onScreen == request.id)
            continue;
        result.append({url, request});
    }
    return result;
}

bool RequestIntake::isWithdrawn(const ComposerRequest &request) const
{
    if (request.remote)
        return !m_remote || !m_remote->isWaiting(request.id);
    return !QFileInfo::exists(FileStore::requestURL(request.id)) &&
           !RequestFileIO::responseExists(request.id) &&
           !RequestFileIO::completedRequestMarkerExists(request.id);
}

bool RequestIntake::answer(const ComposerRequest &request, ComposerResponse::Disposition disposition,
                           const std::optional<QString> &text)
{
    if (request.remote) {
        const std::optional<QString> failure =
            m_remote ? m_remote->answer(request.id, disposition, text)
                     : QStringLiteral("Remote editing is off, so the answer could not be sent.");
        if (failure) {
            const QString message = disposition == ComposerResponse::Disposition::submitted
                                        ? QStringLiteral("Failed to send the editor response to %1.")
                                        : QStringLiteral("Failed to send the cancel response to %1.");
            m_errorLog.record(message.arg(request.remote->host), *failure, kExternalEditor);
            Q_EMIT answerFailed(message.arg(request.remote->host), *failure);
            return false;
        }
        Q_EMIT queueChanged();
        return true;
    }
    try {
        completeExternalEditorRequest(request.id, disposition, text);
    } catch (const TarvelError &error) {
        const QString message = disposition == ComposerResponse::Disposition::submitted
                                    ? QStringLiteral("Failed to write the editor response.")
                                    : QStringLiteral("Failed to write the cancel response.");
        m_errorLog.record(message, error.description(), kExternalEditor);
        Q_EMIT answerFailed(message, error.description());
        return false;
    }
    if (request.cwd)
        Q_EMIT workingDirectoryNoted(*request.cwd);
    Q_EMIT queueChanged();
    return true;
}

void RequestIntake::completeExternalEditorRequest(const QUuid &id, ComposerResponse::Disposition disposition,
                                                  const std::optional<QString> &updatedText)
{
    RequestFileIO::writeResponse({id, m_clock.now(), disposition, updatedText});
    try {
        RequestFileIO::markRequestCompleted(id);
    } catch (const TarvelError &error) {
        recordForRequest(QStringLiteral("Completed editor request but failed to mark it as finished."), id,
                         error.description());
    }
    try {
        RequestFileIO::retireCompletedRequestArtifacts(id);
    } catch (const TarvelError &error) {
        recordForRequest(QStringLiteral("Completed editor request but failed to retire it from the queue."),
                         id, error.description());
    }
}

void RequestIntake::quarantineMalformedPendingRequest(const QString &url, const QString &errorDescription)
{
    QStringList sentences;
    sentences.append(QFileInfo(url).fileName() + QStringLiteral(" could not be decoded: ") +
                     errorDescription + (errorDescription.endsWith(u'.') ? QString() : QStringLiteral(".")));
    if (const auto id = RequestFileIO::requestIdentifier(url)) {
        try {
            RequestFileIO::writeResponse({*id, m_clock.now(), ComposerResponse::Disposition::cancelled, {}});
            sentences.append(QStringLiteral("Wrote a cancellation response for the waiting CLI."));
        } catch (const TarvelError &error) {
            sentences.append(QStringLiteral("Failed to write a cancellation response: ") +
                             error.description() + u'.');
        }
    } else {
        sentences.append(QStringLiteral(
            "No cancellation response could be written because the filename was not a valid UUID."));
    }
    try {
        const QString destination = RequestFileIO::quarantineMalformedRequest(url);
        sentences.append(QStringLiteral("Moved the request to ") + QFileInfo(destination).fileName() + u'.');
    } catch (const TarvelError &error) {
        sentences.append(QStringLiteral("Failed to move the malformed request out of the active queue: ") +
                         error.description() + u'.');
    }
    m_errorLog.record(QStringLiteral("Ignored malformed pending request."), sentences.join(u' '),
                      kRequestQueue);
}

int RequestIntake::waitingRequestCount(const std::optional<QUuid> &onScreen)
{
    const int remote = int(remoteRequests(onScreen).size());
    try {
        return int(recoverablePendingRequests(onScreen).size()) + remote;
    } catch (const TarvelError &) {
        return int(m_queuedRequests.size());
    }
}

void RequestIntake::cancelPendingEditorRequestsOnTermination()
{
    if (m_remote)
        m_remote->cancelAll();
    QList<QString> urls;
    try {
        urls = RequestFileIO::pendingRequestURLs();
    } catch (const UnsafeFolderError &) {
        return; // nothing was served from it, so nothing waits for an answer from here
    } catch (const TarvelError &error) {
        m_errorLog.record(QStringLiteral("Failed to inspect waiting editor requests during quit."),
                          error.description(), kExternalEditor);
        return;
    }
    for (const QString &url : std::as_const(urls)) {
        const auto id = RequestFileIO::requestIdentifier(url);
        if (!id) {
            quarantineMalformedPendingRequest(url,
                                              QStringLiteral("The request filename is not a valid UUID."));
            continue;
        }
        if (!RequestFileIO::completedRequestMarkerExists(*id) && !RequestFileIO::responseExists(*id)) {
            try {
                completeExternalEditorRequest(*id, ComposerResponse::Disposition::cancelled, std::nullopt);
            } catch (const TarvelError &error) {
                recordForRequest(QStringLiteral("Failed to cancel a waiting editor request during quit."),
                                 *id, error.description());
            }
        }
        retireAnswered(*id);
    }
    m_queuedRequests.clear();
}

void RequestIntake::presentErrorAlert(const QString &message, const QString &errorDescription,
                                      const QString &source)
{
    m_errorLog.record(message, errorDescription, source);
    Q_EMIT alertRequested(message, errorDescription);
}

void RequestIntake::recordForRequest(const QString &title, const QUuid &id, const QString &errorDescription)
{
    m_errorLog.record(title, JSONCoding::encodeUuid(id) + QStringLiteral(": ") + errorDescription,
                      kExternalEditor);
}

void RequestIntake::retireAnswered(const QUuid &id)
{
    try {
        RequestFileIO::retireCompletedRequestArtifacts(id);
    } catch (const TarvelError &error) {
        recordForRequest(QStringLiteral("Failed to retire a completed editor request from the queue."), id,
                         error.description());
    }
}
