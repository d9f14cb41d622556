#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <optional>

// Where a request from another machine comes from (tarvel-edit there, through a socket ssh
// forwards). Shown on its composer; none of it is a path on this machine.
struct RemoteOrigin {
    QString host;
    std::optional<QString> fileName;
    std::optional<QString> workingDirectory;

    friend bool operator==(const RemoteOrigin &, const RemoteOrigin &) = default;
};

// What tarvel-edit asks for: open an editor on this text. Lives in Requests/<UUID>.json, unless
// it came from another machine: that one lives only as long as its connection and has an origin.
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
    // Never in a request file.
    std::optional<RemoteOrigin> remote = std::nullopt;

    QJsonObject toJson() const;
    // Throws DecodingError.
    static ComposerRequest fromJson(const QJsonObject &object);

    friend bool operator==(const ComposerRequest &, const ComposerRequest &) = default;
};
