#pragma once

class QMimeData;

#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUrl>
#include <QUuid>

// One file or folder attached to a prompt: shown in a composer's strip, kept with a quick task's
// session and named to its backend.
struct PromptAttachment {
    QUuid id;
    // Absolute and standardized ("." and ".." resolved, no trailing slash).
    QString path;
    // True for files Tarvel made itself (pasted images), which it may delete.
    bool isManagedCopy = false;

    // A new attachment with a fresh id and the standardized form of path.
    static PromptAttachment make(const QString &path, bool isManagedCopy = false);

    // Both look at the file system on every call. A link to a folder counts as a folder.
    bool isDirectory() const;
    // By the file's content type where it can be read, else by its name.
    bool isImage() const;

    QJsonObject toJson() const;
    // Throws DecodingError.
    static PromptAttachment fromJson(const QJsonObject &object);

    // Makes a path absolute (against the current folder) and resolves "." and ".." without
    // following links.
    static QString standardizedPath(const QString &path);
    // Deduplicated by standardized path; the first occurrence wins and keeps its id and
    // isManagedCopy, carrying the standardized path.
    static QList<PromptAttachment> normalized(const QList<PromptAttachment> &attachments);
    // The local files among dragged or pasted data; web addresses and the like are dropped.
    static QList<QUrl> localFileUrls(const QMimeData *data);

    friend bool operator==(const PromptAttachment &, const PromptAttachment &) = default;
};

size_t qHash(const PromptAttachment &attachment, size_t seed = 0) noexcept;
