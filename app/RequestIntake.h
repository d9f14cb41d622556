#pragma once

#include "core/ComposerRequest.h"
#include "core/ComposerResponse.h"
#include "core/RequestFileIO.h"

#include <QList>
#include <QObject>

#include <optional>

class Clock;
class ErrorLogManager;

// The editor-request queue of the running application: scans the Requests folder,
// puts malformed files aside, presents one request at a time (oldest first) and
// writes the answer when the composer is submitted or cancelled. It knows nothing of
// windows; the application delegate shows the composer when asked to.
class RequestIntake final : public QObject {
    Q_OBJECT

public:
    RequestIntake(ErrorLogManager &errorLog, const Clock &clock, QObject *parent = nullptr);

    const std::optional<ComposerRequest> &currentRequest() const { return m_currentRequest; }
    const QList<ComposerRequest> &queuedRequests() const { return m_queuedRequests; }
    bool isBusy() const { return m_currentRequest.has_value(); }

    // Shows the oldest waiting request when idle; refreshes the queue when busy.
    void processPendingRequests();
    void loadQueuedRequests();
    // Waiting requests, oldest first; answered files are retired and malformed ones
    // quarantined on the way. Throws when the folder cannot be listed.
    QList<PendingRequest> recoverablePendingRequests();

    // Writes the response for the request on screen. On success the intake is idle
    // again and true is returned; on failure the user is told and the request stays.
    bool finishCurrentRequest(ComposerResponse::Disposition disposition, const std::optional<QString> &text);

    // Response, marker, retirement. Throws only when the response cannot be written.
    void completeExternalEditorRequest(const QUuid &id, ComposerResponse::Disposition disposition,
                                       const std::optional<QString> &updatedText);
    void quarantineMalformedPendingRequest(const QString &url, const QString &errorDescription);

    int activeEditorRequestCount();
    // Answers every waiting request as cancelled, so no helper is left waiting.
    void cancelPendingEditorRequestsOnTermination();

    static QString quitConfirmationDetail(int runningTaskCount, int waitingEditorRequestCount,
                                          int openScratchComposerCount);

Q_SIGNALS:
    // The composer should open for this request (it is now the current one).
    void composerRequested(const ComposerRequest &request);
    // A failure of something the user just did: record it (done) and show an alert.
    void alertRequested(const QString &message, const QString &informativeText);
    void workingDirectoryNoted(const QString &path);
    void queueChanged();

private:
    void presentErrorAlert(const QString &message, const QString &errorDescription, const QString &source);
    void recordForRequest(const QString &title, const QUuid &id, const QString &errorDescription);
    void retireAnswered(const QUuid &id);

    ErrorLogManager &m_errorLog;
    const Clock &m_clock;
    std::optional<ComposerRequest> m_currentRequest;
    QList<ComposerRequest> m_queuedRequests;
};
