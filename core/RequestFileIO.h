#pragma once

#include "core/ExchangeNames.h"

#include "core/ComposerRequest.h"
#include "core/ComposerResponse.h"

#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

struct PendingRequest {
    QString url;
    ComposerRequest request;
};

// Reads, writes, marks, removes and quarantines the exchange files. Stateless: all
// state is in the file system. Failures throw SystemError or DecodingError unchanged.
namespace RequestFileIO {

void writeRequest(const ComposerRequest &request);
void writeResponse(const ComposerResponse &response);

// Request files, oldest first by creation date; ties keep the directory's order.
QList<QString> pendingRequestURLs();
// Milliseconds since the epoch of a request file's birth (its last change where the file system
// records no birth), the order of pendingRequestURLs(); a file that cannot be examined sorts first.
qint64 creationTime(const QString &url);
// A request file larger than this is refused unread, not read whole.
inline constexpr qint64 maximumRequestFileSize = ExchangeNames::maximumRequestFileSize;

// Reads a request without following a link at url and only from a plain file; throws
// RefusedRequestFileError for a link, anything but a plain file, or a file over the limit.
ComposerRequest readRequest(const QString &url);
QList<PendingRequest> loadPendingRequests();

ComposerResponse readResponse(const QUuid &id);
bool responseExists(const QUuid &id);
void removeResponse(const QUuid &id);
void removeRequest(const QUuid &id);

void markRequestCompleted(const QUuid &id);
bool completedRequestMarkerExists(const QUuid &id);
// Removes the answered request file and then its marker; never touches the response.
void retireCompletedRequestArtifacts(const QUuid &id);

std::optional<QUuid> requestIdentifier(const QString &requestURL);
// Moves a bad request file into MalformedRequests; returns where it went.
QString quarantineMalformedRequest(const QString &url);

} // namespace RequestFileIO
