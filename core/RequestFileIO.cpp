#include "core/RequestFileIO.h"

#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"
#include "core/TarvelError.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cerrno>
#include <limits>

namespace RequestFileIO {
namespace {

// File systems that record no birth time fall back to the last modification, which for these
// write-once files is the moment they appeared.
qint64 creationTimeOf(const QFileInfo &info)
{
    QDateTime date = info.birthTime();
    if (!date.isValid())
        date = info.lastModified();
    return date.isValid() ? date.toMSecsSinceEpoch() : std::numeric_limits<qint64>::min();
}

// The bytes of a request file: a plain file only, never through a link.
QByteArray readRequestBytes(const QString &url)
{
    const QString shown = QDir::toNativeSeparators(url);
    DataFile::PlainFileContents contents =
        DataFile::readPlainFile(url, maximumRequestFileSize, DataFile::SymbolicLinks::refuse);
    switch (contents.status) {
    case DataFile::PlainFileStatus::read:
        break;
    case DataFile::PlainFileStatus::missing:
        throw SystemError(QStringLiteral("read \u201c%1\u201d").arg(shown), ENOENT);
    case DataFile::PlainFileStatus::symbolicLink:
        throw RefusedRequestFileError(
            QStringLiteral("The request file \u201c%1\u201d is a symbolic link, and Tarvel reads only plain "
                           "files as requests.")
                .arg(shown));
    case DataFile::PlainFileStatus::notPlainFile:
        throw RefusedRequestFileError(
            QStringLiteral("The request file \u201c%1\u201d is not a plain file, and Tarvel reads only plain "
                           "files as requests.")
                .arg(shown));
    case DataFile::PlainFileStatus::tooLarge:
        throw RefusedRequestFileError(
            QStringLiteral("The request file \u201c%1\u201d is larger than %2 MB, so Tarvel did not read it.")
                .arg(shown)
                .arg(maximumRequestFileSize / (1024 * 1024)));
    }
    return std::move(contents.bytes);
}

} // namespace

void writeRequest(const ComposerRequest &request)
{
    FileStore::ensureDirectoriesExist();
    DataFile::write(FileStore::requestURL(request.id), JSONCoding::encodeRecord(request));
}

void writeResponse(const ComposerResponse &response)
{
    FileStore::ensureDirectoriesExist();
    DataFile::write(FileStore::responseURL(response.id), JSONCoding::encodeRecord(response),
                    DataFile::privatePermissions, DataFile::Sync::none);
}

QList<QString> pendingRequestURLs()
{
    FileStore::ensureDirectoriesExist();
    const QString folder = FileStore::requestsDirectory();
    QDir dir(folder);
    if (!dir.isReadable())
        throw SystemError(QStringLiteral("list \u201c%1\u201d").arg(QDir::toNativeSeparators(folder)),
                          EACCES);

    struct Entry {
        QString path;
        qint64 created;
    };
    std::vector<Entry> entries;
    // No sorting and no hidden files: QDirIterator hands out entries in directory order.
    QDirIterator it(folder, QDir::Files | QDir::NoDotAndDotDot);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        if (info.suffix() != u"json" || info.fileName().startsWith(u'.'))
            continue;
        entries.push_back({info.absoluteFilePath(), creationTimeOf(info)});
    }
    std::stable_sort(entries.begin(), entries.end(),
                     [](const Entry &a, const Entry &b) { return a.created < b.created; });

    QList<QString> urls;
    urls.reserve(qsizetype(entries.size()));
    for (Entry &entry : entries)
        urls.append(std::move(entry.path));
    return urls;
}

qint64 creationTime(const QString &url)
{
    return creationTimeOf(QFileInfo(url));
}

ComposerRequest readRequest(const QString &url)
{
    return JSONCoding::decodeRecord<ComposerRequest>(readRequestBytes(url));
}

QList<PendingRequest> loadPendingRequests()
{
    QList<PendingRequest> pending;
    for (const QString &url : pendingRequestURLs())
        pending.append({url, readRequest(url)});
    return pending;
}

ComposerResponse readResponse(const QUuid &id)
{
    return JSONCoding::decodeRecord<ComposerResponse>(DataFile::read(FileStore::responseURL(id)));
}

bool responseExists(const QUuid &id)
{
    return DataFile::exists(FileStore::responseURL(id));
}

void removeResponse(const QUuid &id)
{
    DataFile::removeIfExists(FileStore::responseURL(id));
}

void removeRequest(const QUuid &id)
{
    DataFile::removeIfExists(FileStore::requestURL(id));
}

void markRequestCompleted(const QUuid &id)
{
    FileStore::ensureDirectoriesExist();
    DataFile::write(FileStore::completedRequestMarkerURL(id), QByteArray(), DataFile::privatePermissions,
                    DataFile::Sync::none);
}

bool completedRequestMarkerExists(const QUuid &id)
{
    return DataFile::exists(FileStore::completedRequestMarkerURL(id));
}

void retireCompletedRequestArtifacts(const QUuid &id)
{
    const QString request = FileStore::requestURL(id);
    DataFile::removeIfExists(request);
    if (!DataFile::exists(request))
        DataFile::removeIfExists(FileStore::completedRequestMarkerURL(id));
}

std::optional<QUuid> requestIdentifier(const QString &requestURL)
{
    return JSONCoding::parseUuid(QFileInfo(requestURL).completeBaseName());
}

QString quarantineMalformedRequest(const QString &url)
{
    FileStore::ensureDirectoriesExist();
    const QString destination = FileStore::malformedRequestURL(url);
    DataFile::removeIfExists(destination);
    QFile source(url);
    if (!source.rename(destination)) {
        throw SystemError(QStringLiteral("move \u201c%1\u201d to \u201c%2\u201d")
                              .arg(QDir::toNativeSeparators(url), QDir::toNativeSeparators(destination)),
                          source.errorString());
    }
    return destination;
}

} // namespace RequestFileIO
