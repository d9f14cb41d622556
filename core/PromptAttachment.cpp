#include "core/PromptAttachment.h"

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

PromptAttachment PromptAttachment::make(const QString &path, bool isManagedCopy)
{
    return PromptAttachment{QUuid::createUuid(), standardizedPath(path), isManagedCopy};
}

bool PromptAttachment::isDirectory() const
{
    return QFileInfo(path).isDir();
}

bool PromptAttachment::isImage() const
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

QJsonObject PromptAttachment::toJson() const
{
    return QJsonObject{
        {kId, JSONCoding::encodeUuid(id)},
        {kPath, path},
        {kIsManagedCopy, isManagedCopy},
    };
}

PromptAttachment PromptAttachment::fromJson(const QJsonObject &object)
{
    const std::optional<bool> managed = JSONCoding::optionalBool(object, kIsManagedCopy);
    if (!managed)
        throw DecodingError(
            QStringLiteral("The required key \u201c%1\u201d is missing.").arg(kIsManagedCopy));
    return PromptAttachment{JSONCoding::requiredUuid(object, kId), JSONCoding::requiredString(object, kPath),
                            *managed};
}

QString PromptAttachment::standardizedPath(const QString &path)
{
    if (path.isEmpty())
        return path;
    return QDir::cleanPath(QDir::isAbsolutePath(path) ? path : QDir::current().absoluteFilePath(path));
}

QList<PromptAttachment> PromptAttachment::normalized(const QList<PromptAttachment> &attachments)
{
    QList<PromptAttachment> result;
    result.reserve(attachments.size());
    QSet<QString> seen;
    for (const PromptAttachment &attachment : attachments) {
        const QString standardized = standardizedPath(attachment.path);
        if (seen.contains(standardized))
            continue;
        seen.insert(standardized);
        result.append(PromptAttachment{attachment.id, standardized, attachment.isManagedCopy});
    }
    return result;
}

size_t qHash(const PromptAttachment &attachment, size_t seed) noexcept
{
    return qHashMulti(seed, attachment.id, attachment.path, attachment.isManagedCopy);
}

QList<QUrl> PromptAttachment::localFileUrls(const QMimeData *data)
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
