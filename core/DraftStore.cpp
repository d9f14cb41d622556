#include "core/DraftStore.h"

#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"
#include "core/TarvelError.h"

#include <QDir>
#include <QFileInfo>

namespace {
const QString kScratchPrefix = QStringLiteral("scratch-");
const QString kExtension = QStringLiteral(".txt");
} // namespace

DraftStore::DraftStore()
    : DraftStore(QDir(FileStore::baseDirectory()).filePath(QStringLiteral("Drafts")))
{
}

DraftStore::DraftStore(QString folder)
    : m_folder(std::move(folder))
{
}

QString DraftStore::requestDraftName(const QUuid &requestId)
{
    return JSONCoding::encodeUuid(requestId);
}

QString DraftStore::scratchDraftName(const QUuid &composerId)
{
    return kScratchPrefix + JSONCoding::encodeUuid(composerId);
}

QString DraftStore::path(const QString &name) const
{
    return QDir(m_folder).filePath(name + kExtension);
}

void DraftStore::save(const QString &name, const QString &text) const
{
    FileStore::ensurePrivateFolder(m_folder);
    DataFile::write(path(name), text.toUtf8(), DataFile::privatePermissions);
}

std::optional<QString> DraftStore::load(const QString &name) const
{
    if (!DataFile::exists(path(name)))
        return std::nullopt;
    try {
        return QString::fromUtf8(DataFile::read(path(name)));
    } catch (const TarvelError &) {
        return std::nullopt;
    }
}

void DraftStore::remove(const QString &name) const
{
    try {
        DataFile::removeIfExists(path(name));
    } catch (const TarvelError &) {
        // A draft left behind is offered once more at worst.
    }
}

std::optional<QString> DraftStore::takeNewestScratchDraft(const QList<QUuid> &openComposers) const
{
    QStringList excluded;
    for (const QUuid &id : openComposers)
        excluded.append(scratchDraftName(id) + kExtension);
    const QFileInfoList files =
        QDir(m_folder).entryInfoList({kScratchPrefix + u'*' + kExtension}, QDir::Files, QDir::Time);
    for (const QFileInfo &file : files) {
        if (excluded.contains(file.fileName()))
            continue;
        const QString name = file.completeBaseName();
        const std::optional<QString> text = load(name);
        remove(name);
        if (text && !text->trimmed().isEmpty())
            return text;
    }
    return std::nullopt;
}

void DraftStore::removeRequestDraftsExcept(const QList<QUuid> &waitingRequests) const
{
    for (const QFileInfo &file : QDir(m_folder).entryInfoList({u'*' + kExtension}, QDir::Files)) {
        const QString name = file.completeBaseName();
        if (name.startsWith(kScratchPrefix))
            continue;
        const QUuid id = QUuid::fromString(name);
        if (id.isNull() || !waitingRequests.contains(id))
            remove(name);
    }
}
