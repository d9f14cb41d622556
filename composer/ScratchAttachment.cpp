#include "composer/ScratchAttachment.h"

#include <QMimeData>

#include "core/JSONCoding.h"

#include <QDir>
#include <QFileInfo>
#include <QHashFunctions>
#include <QMimeDatabase>
#include <QSet>

namespace {
const QString kId = QStringLiteral("id");
const QString kPath = QStringLiteral("path");
const QString kIsManagedCopy = QStringLiteral("isManagedCopy");

bool hasImageExtension(const QString &path)
{
    // What the backends accept as images, plus the common camera and screenshot formats.
    static const QSet<QString> extensions{
        QStringLiteral("png"),  QStringLiteral("jpg"),  QStringLiteral("jpeg"), QStringLiteral("gif"),
        QStringLiteral("webp"), QStringLiteral("bmp"),  QStringLiteral("tif"),  QStringLiteral("tiff"),
        QStringLiteral("heic"), QStringLiteral("heif"), QStringLiteral("svg"),  QStringLiteral("ico"),
    };
    return extensions.contains(QFileInfo(path).suffix().toLower());
}
} // namespace

ScratchAttachment ScratchAttachment::make(const QString &path, bool isManagedCopy)
{
    return ScratchAttachment{QUuid::createUuid(), standardizedPath(path), isManagedCopy};
}

bool ScratchAttachment::isDirectory() const
{
    return QFileInfo(path).isDir();
}

bool ScratchAttachment::isImage() const
{
    const QFileInfo info(path);
    if (info.isDir())
        return false;
    if (info.isFile()) {
        // Name first, content when the name says nothing; a generic type means no answer.
        const QMimeType type = QMimeDatabase().mimeTypeForFile(info);
        if (type.isValid() && !type.isDefault())
            return type.name().startsWith(u"image/");
    }
    return hasImageExtension(path);
}

QJsonObject ScratchAttachment::toJson() const
{
    return QJsonObject{
        {kId, JSONCoding::encodeUuid(id)},
        {kPath, path},
        {kIsManagedCopy, isManagedCopy},
    };
}

ScratchAttachment ScratchAttachment::fromJson(const QJsonObject &object)
{
    const std::optional<bool> managed = JSONCoding::optionalBool(object, kIsManagedCopy);
    if (!managed)
        throw DecodingError(
            QStringLiteral("The required key \u201c%1\u201d is missing.").arg(kIsManagedCopy));
    return ScratchAttachment{JSONCoding::requiredUuid(object, kId), JSONCoding::requiredString(object, kPath),
                             *managed};
}

QString ScratchAttachment::standardizedPath(const QString &path)
{
    if (path.isEmpty())
        return path;
    return QDir::cleanPath(QDir::isAbsolutePath(path) ? path : QDir::current().absoluteFilePath(path));
}

QList<ScratchAttachment> ScratchAttachment::normalized(const QList<ScratchAttachment> &attachments)
{
    QList<ScratchAttachment> result;
    result.reserve(attachments.size());
    QSet<QString> seen;
    for (const ScratchAttachment &attachment : attachments) {
        const QString standardized = standardizedPath(attachment.path);
        if (seen.contains(standardized))
            continue;
        seen.insert(standardized);
        result.append(ScratchAttachment{attachment.id, standardized, attachment.isManagedCopy});
    }
    return result;
}

size_t qHash(const ScratchAttachment &attachment, size_t seed) noexcept
{
    return qHashMulti(seed, attachment.id, attachment.path, attachment.isManagedCopy);
}

QList<QUrl> ScratchAttachment::localFileUrls(const QMimeData *data)
{
    QList<QUrl> urls;
    if (data == nullptr || !data->hasUrls())
        return urls;
    for (const QUrl &url : data->urls()) {
        if (url.isLocalFile())
            urls.append(url);
    }
    return urls;
}
