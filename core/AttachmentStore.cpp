#include "core/AttachmentStore.h"

#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"

#include <QDir>
#include <QFileInfo>
#include <QLocale>

#include <algorithm>
#include <utility>

namespace {

const QString kFolderName = QStringLiteral("ImportedAttachments");

// Only a file Tarvel made itself may be deleted: a managed copy that lies in the folder.
void removeIfManagedCopy(const QString &path)
{
    const QString folder = QDir::cleanPath(AttachmentStore::folder());
    if (!path.startsWith(folder + u'/') || !QFileInfo(path).isFile())
        return;
    try {
        DataFile::removeIfExists(path);
    } catch (const TarvelError &) {
        // A copy that cannot be removed only takes space.
    }
}

} // namespace

QString AttachmentStore::folder()
{
    return QDir(FileStore::baseDirectory()).filePath(kFolderName);
}

QString AttachmentStore::uniqueFilename(const QDateTime &at)
{
    const QString stamp = QLocale::c().toString(at.toLocalTime(), QStringLiteral("yyyy-MM-dd HH.mm.ss"));
    const QString suffix = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().left(6);
    return QStringLiteral("Pasted Image %1 %2.png").arg(stamp, suffix);
}

PromptAttachment AttachmentStore::importPng(const QByteArray &png)
{
    const QDir folder(FileStore::ensureSubdirectoryExists(kFolderName));
    QString path = folder.filePath(uniqueFilename());
    // A clash needs the same second and the same 24 random bits; draw again rather than overwrite.
    while (QFileInfo::exists(path))
        path = folder.filePath(uniqueFilename());
    DataFile::write(path, png);
    return PromptAttachment::make(path, true);
}

void AttachmentStore::hold(const QUuid &holder, const QList<PromptAttachment> &attachments)
{
    QSet<QString> held;
    for (const PromptAttachment &attachment : attachments) {
        if (attachment.isManagedCopy)
            held.insert(QDir::cleanPath(attachment.path));
    }
    const QSet<QString> before = held.isEmpty() ? m_held.take(holder) : std::exchange(m_held[holder], held);
    for (const QString &path : before) {
        if (!held.contains(path) && !isHeld(path))
            removeIfManagedCopy(path);
    }
}

void AttachmentStore::release(const QUuid &holder)
{
    hold(holder, {});
}

QSet<QString> AttachmentStore::heldPaths() const
{
    QSet<QString> paths;
    for (const QSet<QString> &held : m_held)
        paths.unite(held);
    return paths;
}

int AttachmentStore::removeUnreferencedCopies(const QSet<QString> &referenced, const QStringList &texts,
                                              const QDateTime &cutoff)
{
    int removed = 0;
    const QDir folder(AttachmentStore::folder());
    // Plain files only: a link or a folder in there is not one of our copies.
    for (const QFileInfo &file : folder.entryInfoList(QDir::Files | QDir::NoSymLinks | QDir::Hidden)) {
        const QString path = QDir::cleanPath(file.absoluteFilePath());
        if (file.lastModified() >= cutoff || referenced.contains(path))
            continue;
        if (std::any_of(texts.cbegin(), texts.cend(),
                        [&path](const QString &text) { return text.contains(path); }))
            continue;
        removeIfManagedCopy(path);
        removed += QFileInfo::exists(path) ? 0 : 1;
    }
    return removed;
}

bool AttachmentStore::isHeld(const QString &path) const
{
    const QString cleaned = QDir::cleanPath(path);
    return std::any_of(m_held.cbegin(), m_held.cend(),
                       [&cleaned](const QSet<QString> &paths) { return paths.contains(cleaned); });
}
