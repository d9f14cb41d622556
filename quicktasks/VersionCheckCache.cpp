#include "quicktasks/VersionCheckCache.h"

#include "backends/BackendProfiles.h"
#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>

namespace {

const QString kFolder = QStringLiteral("Backends");
const QString kFileName = QStringLiteral("version-checks.json");

} // namespace

std::optional<ExecutableIdentity> ExecutableIdentity::of(const QString &executable)
{
    const QFileInfo info(executable);
    const QString resolved = info.canonicalFilePath();
    struct stat status {};
    if (resolved.isEmpty() || ::stat(QFile::encodeName(resolved).constData(), &status) != 0)
        return std::nullopt;
    return ExecutableIdentity{resolved, qint64(status.st_size),
                              QFileInfo(resolved).lastModified().toMSecsSinceEpoch(), quint64(status.st_dev),
                              quint64(status.st_ino)};
}

VersionCheckCache::VersionCheckCache(QString storagePath)
    : m_storagePath(std::move(storagePath))
{
}

VersionCheckCache &VersionCheckCache::shared()
{
    static VersionCheckCache cache{QString()};
    cache.useStoragePath(defaultStoragePath());
    return cache;
}

QString VersionCheckCache::defaultStoragePath()
{
    return QDir(QDir(FileStore::baseDirectory()).filePath(kFolder)).filePath(kFileName);
}

void VersionCheckCache::useStoragePath(const QString &path)
{
    const std::lock_guard lock(m_mutex);
    if (path == m_storagePath)
        return;
    m_storagePath = path;
    m_entries.clear();
    m_loaded = false;
}

std::optional<QString> VersionCheckCache::version(QuickTaskCLIBackend backend,
                                                  const ExecutableIdentity &identity)
{
    const std::lock_guard lock(m_mutex);
    loadLocked();
    const auto entry = m_entries.constFind(identity.resolvedPath);
    if (entry == m_entries.cend() || entry->backend != backend || !(entry->identity == identity))
        return std::nullopt;
    return entry->version;
}

void VersionCheckCache::remember(QuickTaskCLIBackend backend, const ExecutableIdentity &identity,
                                 const QString &version)
{
    const std::lock_guard lock(m_mutex);
    loadLocked();
    m_entries.insert(identity.resolvedPath, Entry{backend, identity, version});
    saveLocked();
}

void VersionCheckCache::forget(const QString &resolvedPath)
{
    const std::lock_guard lock(m_mutex);
    loadLocked();
    if (m_entries.remove(resolvedPath) > 0)
        saveLocked();
}

void VersionCheckCache::loadLocked()
{
    if (m_loaded)
        return;
    m_loaded = true;
    if (!QFileInfo::exists(m_storagePath))
        return;
    QByteArray bytes;
    try {
        bytes = DataFile::read(m_storagePath);
    } catch (const TarvelError &) {
        return; // only a cache: every backend is checked again
    }
    const QJsonArray checks = QJsonDocument::fromJson(bytes).object().value(u"checks").toArray();
    for (const QJsonValue &value : checks) {
        const QJsonObject check = value.toObject();
        const auto backend = BackendProfiles::fromRawValue(check.value(u"backend").toString());
        const QString path = check.value(u"path").toString();
        bool sizeOk = false, modifiedOk = false, deviceOk = false, inodeOk = false;
        const ExecutableIdentity identity{path, check.value(u"size").toString().toLongLong(&sizeOk),
                                          check.value(u"modified").toString().toLongLong(&modifiedOk),
                                          check.value(u"device").toString().toULongLong(&deviceOk),
                                          check.value(u"inode").toString().toULongLong(&inodeOk)};
        const QString version = check.value(u"version").toString();
        if (backend && !path.isEmpty() && !version.isEmpty() && sizeOk && modifiedOk && deviceOk && inodeOk)
            m_entries.insert(path, Entry{*backend, identity, version});
    }
}

void VersionCheckCache::saveLocked() const
{
    QJsonArray checks;
    for (const Entry &entry : m_entries) {
        // Numbers as text: a 64-bit inode does not survive a JSON double.
        checks.append(QJsonObject{{QStringLiteral("backend"), BackendProfiles::of(entry.backend).rawValue()},
                                  {QStringLiteral("path"), entry.identity.resolvedPath},
                                  {QStringLiteral("size"), QString::number(entry.identity.size)},
                                  {QStringLiteral("modified"), QString::number(entry.identity.modified)},
                                  {QStringLiteral("device"), QString::number(entry.identity.device)},
                                  {QStringLiteral("inode"), QString::number(entry.identity.inode)},
                                  {QStringLiteral("version"), entry.version}});
    }
    try {
        FileStore::ensurePrivateFolder(QFileInfo(m_storagePath).absolutePath());
        DataFile::write(m_storagePath,
                        QJsonDocument(QJsonObject{{QStringLiteral("checks"), checks}}).toJson());
    } catch (const TarvelError &) {
        // Kept in memory all the same; the next start checks again.
    }
}
