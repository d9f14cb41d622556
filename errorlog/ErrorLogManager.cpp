#include "errorlog/ErrorLogManager.h"

#include "core/Clock.h"
#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"

#include <QDir>
#include <QJsonArray>

namespace {
const QString kErrorsFolder = QStringLiteral("Errors");
} // namespace

ErrorLogManager::ErrorLogManager(const Clock &clock, QObject *parent)
    : QObject(parent)
    , m_clock(clock)
{
}

ErrorLogManager &ErrorLogManager::shared()
{
    static ErrorLogManager manager(Clock::system());
    return manager;
}

QString ErrorLogManager::storageURL()
{
    return QDir(QDir(FileStore::baseDirectory()).filePath(kErrorsFolder)).filePath(QStringLiteral("errors.json"));
}

void ErrorLogManager::load()
{
    m_entries.clear();
    try {
        FileStore::ensureSubdirectoryExists(kErrorsFolder);
        const QString path = storageURL();
        if (!DataFile::exists(path))
            return;
        const QJsonArray array = JSONCoding::decodeArray(DataFile::read(path));
        QList<ErrorLogEntry> loaded;
        loaded.reserve(array.size());
        for (const QJsonValue &value : array) {
            if (!value.isObject())
                return;
            loaded.append(ErrorLogEntry::fromJson(value.toObject()));
        }
        m_entries = std::move(loaded);
    } catch (const TarvelError &) {
        // A damaged log starts over empty; the next change rewrites the file.
    }
}

void ErrorLogManager::record(const QString &title, const QString &detail, const QString &source)
{
    const QString trimmedTitle = title.trimmed();
    if (trimmedTitle.isEmpty())
        return;
    QString trimmedDetail = detail.trimmed();
    if (trimmedDetail.isEmpty())
        trimmedDetail = QStringLiteral("No additional details were captured.");

    // A failure that repeats (the global shortcut at every launch) is one entry until something
    // else happens in between.
    if (!m_entries.isEmpty()) {
        const ErrorLogEntry &newest = m_entries.constFirst();
        if (newest.title == trimmedTitle && newest.detail == trimmedDetail && newest.source == source)
            return;
    }
    m_entries.prepend(ErrorLogEntry{QUuid::createUuid(), trimmedTitle, trimmedDetail, source, m_clock.now()});
    if (m_entries.size() > maximumEntries)
        m_entries.resize(maximumEntries);
    save();
    Q_EMIT errorLogDidChange();
}

void ErrorLogManager::dismiss(const QUuid &id)
{
    const qsizetype removed = m_entries.removeIf([&id](const ErrorLogEntry &entry) { return entry.id == id; });
    if (removed == 0)
        return;
    save();
    Q_EMIT errorLogDidChange();
}

void ErrorLogManager::save() const
{
    try {
        FileStore::ensureSubdirectoryExists(kErrorsFolder);
        QJsonArray array;
        for (const ErrorLogEntry &entry : m_entries)
            array.append(entry.toJson());
        DataFile::write(storageURL(), JSONCoding::encode(array));
    } catch (const TarvelError &) {
        // The log cannot log its own failure; memory stays authoritative.
    }
}
