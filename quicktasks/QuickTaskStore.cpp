#include "quicktasks/QuickTaskStore.h"

#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"
#include "quicktasks/OutputFile.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>

#include <utility>

namespace {
const QString kQuickTasksFolder = QStringLiteral("QuickTasks");
const QString kTranscriptsFolder = QStringLiteral("Transcripts");
const QString kRawLogsFolder = QStringLiteral("RawLogs");
} // namespace

QuickTaskStore::QuickTaskStore()
    : QuickTaskStore(defaultDirectory())
{
}

QuickTaskStore::QuickTaskStore(QString directory)
    : m_directory(std::move(directory))
{
}

QString QuickTaskStore::defaultDirectory()
{
    return QDir(FileStore::baseDirectory()).filePath(kQuickTasksFolder);
}

QString QuickTaskStore::sessionsURL() const
{
    return QDir(m_directory).filePath(QStringLiteral("sessions.json"));
}

QString QuickTaskStore::transcriptsDirectory() const
{
    return QDir(m_directory).filePath(kTranscriptsFolder);
}

QString QuickTaskStore::rawLogsDirectory() const
{
    return QDir(m_directory).filePath(kRawLogsFolder);
}

QString QuickTaskStore::transcriptURL(const QUuid &id) const
{
    return QDir(transcriptsDirectory()).filePath(JSONCoding::encodeUuid(id) + QStringLiteral(".txt"));
}

QString QuickTaskStore::rawLogURL(const QUuid &id) const
{
    return QDir(rawLogsDirectory()).filePath(JSONCoding::encodeUuid(id) + QStringLiteral(".log"));
}

QList<QuickTaskSession> QuickTaskStore::loadSessions() const
{
    QList<QuickTaskSession> sessions;
    try {
        if (!DataFile::exists(sessionsURL()))
            return sessions;
        const QJsonArray array = JSONCoding::decodeArray(DataFile::read(sessionsURL()));
        for (const QJsonValue &value : array) {
            try {
                if (value.isObject())
                    sessions.append(QuickTaskSession::fromJson(value.toObject()));
            } catch (const DecodingError &) {
                // One damaged entry must not cost the user the rest of the list.
            }
        }
    } catch (const TarvelError &) {
        sessions.clear();
    }
    return sessions;
}

void QuickTaskStore::saveSessions(const QList<QuickTaskSession> &sessions) const
{
    ensureDirectory(m_directory);
    QJsonArray array;
    for (const QuickTaskSession &session : sessions)
        array.append(session.toJson());
    DataFile::write(sessionsURL(), JSONCoding::encode(array));
}

void QuickTaskStore::createSessionFiles(const QUuid &id, const QByteArray &transcriptHeader) const
{
    ensureDirectory(transcriptsDirectory());
    ensureDirectory(rawLogsDirectory());
    DataFile::write(transcriptURL(id), transcriptHeader);
    DataFile::write(rawLogURL(id), QByteArray());
}

bool QuickTaskStore::appendTranscript(const QUuid &id, QByteArrayView text) const
{
    return OutputFile::append(transcriptURL(id), text);
}

bool QuickTaskStore::appendRawLog(const QUuid &id, QByteArrayView text) const
{
    return OutputFile::append(rawLogURL(id), text);
}

void QuickTaskStore::removeSessionFiles(const QUuid &id) const
{
    for (const QString &path : {transcriptURL(id), rawLogURL(id)}) {
        try {
            DataFile::removeIfExists(path);
        } catch (const SystemError &) {
            // Left behind; nothing refers to it any more.
        }
    }
}

void QuickTaskStore::ensureDirectory(const QString &path) const
{
    if (QDir(path).exists())
        return;
    if (!QDir().mkpath(path))
        throw SystemError(
            QStringLiteral("create the folder \u201c%1\u201d").arg(QDir::toNativeSeparators(path)),
            QStringLiteral("The folder could not be created."));
    QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
}
