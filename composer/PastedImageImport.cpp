#include "composer/PastedImageImport.h"

#include "core/AttachmentStore.h"
#include "core/TarvelError.h"

#include <QBuffer>
#include <QImage>
#include <QMimeData>

namespace PastedImageImport {

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

PromptAttachment importImage(const QImage &image)
{
    if (image.isNull())
        throw TarvelError(QStringLiteral("The pasted image is empty and could not be attached."));
    return AttachmentStore::importPng(pngData(image));
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

} // namespace PastedImageImport
