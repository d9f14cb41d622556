#include "composer/ScratchAttachmentImportStore.h"

#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/TarvelError.h"

#include <QBuffer>
#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QLocale>
#include <QMimeData>
#include <QUuid>

namespace ScratchAttachmentImportStore {

namespace {

QByteArray pngData(const QImage &image)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    if (!image.save(&buffer, "PNG") || bytes.isEmpty())
        throw TarvelError(QStringLiteral("The pasted image could not be converted to PNG."));
    return bytes;
}

// Encoded image bytes in the data, PNG first as the most common clipboard format.
std::optional<QImage> decodedImage(const QMimeData *data, bool &sawImageFormat)
{
    QStringList formats = data->formats();
    std::stable_partition(formats.begin(), formats.end(),
                          [](const QString &format) { return format == u"image/png"; });
    for (const QString &format : std::as_const(formats)) {
        if (!format.startsWith(u"image/"))
            continue;
        sawImageFormat = true;
        const QImage image = QImage::fromData(data->data(format));
        if (!image.isNull())
            return image;
    }
    return std::nullopt;
}

} // namespace

QString importFolder()
{
    return QDir(FileStore::baseDirectory()).filePath(QString::fromUtf16(importFolderName));
}

QString uniqueFilename(const QDateTime &at)
{
    const QString stamp = QLocale::c().toString(at.toLocalTime(), QStringLiteral("yyyy-MM-dd HH.mm.ss"));
    const QString suffix = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper().left(6);
    return QStringLiteral("Pasted Image %1 %2.png").arg(stamp, suffix);
}

PromptAttachment importImage(const QImage &image)
{
    if (image.isNull())
        throw TarvelError(QStringLiteral("The pasted image is empty and could not be attached."));
    const QByteArray bytes = pngData(image);
    const QDir folder(FileStore::ensureSubdirectoryExists(QString::fromUtf16(importFolderName)));
    QString path = folder.filePath(uniqueFilename());
    // A clash needs the same second and the same 24 random bits; draw again rather than overwrite.
    while (QFileInfo::exists(path))
        path = folder.filePath(uniqueFilename());
    DataFile::write(path, bytes);
    return PromptAttachment::make(path, true);
}

std::optional<PromptAttachment> importImage(const QMimeData *data)
{
    if (data == nullptr)
        return std::nullopt;
    bool sawImageFormat = false;
    if (data->hasImage()) {
        sawImageFormat = true;
        const QImage image = qvariant_cast<QImage>(data->imageData());
        if (!image.isNull())
            return importImage(image);
    }
    if (const std::optional<QImage> image = decodedImage(data, sawImageFormat))
        return importImage(*image);
    if (sawImageFormat)
        throw TarvelError(QStringLiteral("The pasted image could not be read."));
    return std::nullopt;
}

void cleanup(const QList<PromptAttachment> &attachments)
{
    for (const PromptAttachment &attachment : attachments) {
        if (!attachment.isManagedCopy)
            continue;
        try {
            DataFile::removeIfExists(attachment.path);
        } catch (const TarvelError &) {
            // Ignored on purpose: the copy only takes space.
        }
    }
}

} // namespace ScratchAttachmentImportStore
