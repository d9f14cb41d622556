#pragma once

#include "core/ComposerRequest.h"
#include "core/ComposerResponse.h"
#include "core/RequestFileIO.h"

#include <QList>
#include <QObject>

#include <optional>

class Clock;
class ErrorLogManager;
class RemoteRequestServer;

// The editor-request queue of the running application: scans the Requests folder, puts
// malformed files aside, hands out the oldest waiting request and writes the answers. Requests
// from other machines wait in the remote request server, with their connections, and join the
// same queue by their time of arrival; they are answered over those connections. The request on
// screen is held by whoever took it (the composer coordinator), not here.
class RequestIntake final : public QObject {
    Q_OBJECT

public:
    RequestIntake(ErrorLogManager &errorLog, const Clock &clock, QObject *parent = nullptr);

    // The second intake: requests from other machines. Not owned.
    void setRemoteRequests(RemoteRequestServer *server) { m_remote = server; }

    // The requests waiting behind the one on screen.
    const QList<ComposerRequest> &queuedRequests() const { return m_queuedRequests; }

    // The oldest waiting request, taken off the queue (the rest stay queued); nothing
    // when none waits or the folder cannot be read (the user is told).
    std::optional<ComposerRequest> takeNextRequest();
    // Refreshes the queue while the request onScreen is being edited.
    void loadQueuedRequests(const QUuid &onScreen);
    // Waiting requests other than onScreen, oldest first; answered files are retired and
    // malformed ones quarantined on the way. Throws when the folder cannot be listed.
    QList<PendingRequest> recoverablePendingRequests(const std::optional<QUuid> &onScreen = std::nullopt);

    // Writes the response for a request taken from here. False when it could not be
    // written: recorded, answerFailed says why, and the request is still unanswered.
    bool answer(const ComposerRequest &request, ComposerResponse::Disposition disposition,
                const std::optional<QString> &text);

    // Response, marker, retirement. Throws only when the response cannot be written.
    void completeExternalEditorRequest(const QUuid &id, ComposerResponse::Disposition disposition,
                                       const std::optional<QString> &updatedText);
    void quarantineMalformedPendingRequest(const QString &url, const QString &errorDescription);

    // Whether the helper of a request taken from here gave up on it: its file is gone unanswered,
    // or its connection closed.
    bool isWithdrawn(const ComposerRequest &request) const;

    // Requests still waiting for an answer, onScreen not counted.
    int waitingRequestCount(const std::optional<QUuid> &onScreen);
    // Answers every waiting request as cancelled, so no helper is left waiting.
    void cancelPendingEditorRequestsOnTermination();

Q_SIGNALS:
    // A failure found while looking for requests, recorded already: to be shown when the user
    // is not busy with something else.
    void alertRequested(const QString &message, const QString &informativeText);
    // The answer the user just gave could not be written, recorded already: to be shown over
    // the composer that gave it.
    void answerFailed(const QString &message, const QString &informativeText);
    void workingDirectoryNoted(const QString &path);
    void queueChanged();

private:
    void presentErrorAlert(const QString &message, const QString &errorDescription, const QString &source);
    void recordForRequest(const QString &title, const QUuid &id, const QString &errorDescription);
    void retireAnswered(const QUuid &id);
    QList<ComposerRequest> remoteRequests(const std::optional<QUuid> &onScreen = std::nullopt) const;

    ErrorLogManager &m_errorLog;
    RemoteRequestServer *m_remote = nullptr;
    const Clock &m_clock;
    QList<ComposerRequest> m_queuedRequests;
    QString m_reportedUnsafeFolder;
};
