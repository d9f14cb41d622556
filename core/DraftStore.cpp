#include "core/DraftStore.h"

#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"
#include "core/TarvelError.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>

namespace {
const QString kScratchPrefix = QStringLiteral("scratch-");
const QString kExtension = QStringLiteral(".txt");
const QString kAttachmentsExtension = QStringLiteral(".attachments.json");
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

QString DraftStore::attachmentsPath(const QString &name) const
{
    return QDir(m_folder).filePath(name + kAttachmentsExtension);
}

void DraftStore::save(const QString &name, const QString &text,
                      const QList<PromptAttachment> &attachments) const
{
    FileStore::ensurePrivateFolder(m_folder);
    // The attachments first: a text without its attachments would be restored as if complete.
    if (attachments.isEmpty()) {
        DataFile::removeIfExists(attachmentsPath(name));
    } else {
        QJsonArray list;
        for (const PromptAttachment &attachment : attachments)
            list.append(attachment.toJson());
        DataFile::write(attachmentsPath(name), JSONCoding::encode(list), DataFile::privatePermissions);
    }
    DataFile::write(path(name), text.toUtf8(), DataFile::privatePermissions);
}

QList<PromptAttachment> DraftStore::loadAttachments(const QString &name) const
{
    QList<PromptAttachment> attachments;
    try {
        if (!DataFile::exists(attachmentsPath(name)))
            return {};
        for (const QJsonValue &value : JSONCoding::decodeArray(DataFile::read(attachmentsPath(name))))
            attachments.append(PromptAttachment::fromJson(value.toObject()));
    } catch (const TarvelError &) {
        // What can be read is offered; a damaged list offers none rather than a part.
        return {};
    }
    return attachments;
}

QStringList DraftStore::texts() const
{
    QStringList texts;
    for (const QFileInfo &file : QDir(m_folder).entryInfoList({u'*' + kExtension}, QDir::Files)) {
        if (const std::optional<QString> text = load(file.completeBaseName()))
            texts.append(*text);
    }
    return texts;
}

QSet<QString> DraftStore::attachmentPaths() const
{
    QSet<QString> paths;
    for (const QFileInfo &file : QDir(m_folder).entryInfoList({u'*' + kAttachmentsExtension}, QDir::Files)) {
        const QString name = file.fileName().chopped(kAttachmentsExtension.size());
        for (const PromptAttachment &attachment : loadAttachments(name))
            paths.insert(QDir::cleanPath(attachment.path));
    }
    return paths;
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
        DataFile::removeIfExists(attachmentsPath(name));
    } catch (const TarvelError &) {
        // A draft left behind is offered once more at worst.
    }
}

std::optional<DraftStore::Draft> DraftStore::takeNewestScratchDraft(const QList<QUuid> &openComposers) const
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
        const QList<PromptAttachment> attachments = loadAttachments(name);
        remove(name);
        if (text && (!text->trimmed().isEmpty() || !attachments.isEmpty()))
            return Draft{*text, attachments};
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
