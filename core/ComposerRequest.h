#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <optional>

// What tarvel-edit asks for: open an editor on this text. Lives in Requests/<UUID>.json.
struct ComposerRequest {
    QUuid id;
    QDateTime createdAt;
    std::optional<QString> cwd;
    QString initialText;
    std::optional<QString> filePath;
    std::optional<QString> sourceApplicationBundleIdentifier;
    std::optional<qint32> sourceApplicationPID;
    // A Wayland activation token from the helper's environment, for the composer's activation.
    std::optional<QString> activationToken = std::nullopt;

    QJsonObject toJson() const;
    // Throws DecodingError.
    static ComposerRequest fromJson(const QJsonObject &object);

    friend bool operator==(const ComposerRequest &, const ComposerRequest &) = default;
};
