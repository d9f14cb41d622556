#pragma once

#include "backends/QuickTaskCLIBackend.h"
#include "core/PromptAttachment.h"

#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QUuid>

#include <optional>

// Where a quick task was started from, so that the focus can go back there.
struct QuickTaskSourceContext {
    std::optional<QString> bundleIdentifier;
    std::optional<qint32> processIdentifier;

    QJsonObject toJson() const;
    // Throws DecodingError.
    static QuickTaskSourceContext fromJson(const QJsonObject &object);

    friend bool operator==(const QuickTaskSourceContext &, const QuickTaskSourceContext &) = default;
};

// One run of a prompt through a backend, as listed in the status menu and kept in
// sessions.json.
struct QuickTaskSession {
    enum class Status { running, succeeded, failed, cancelled };

    QUuid id;
    QuickTaskCLIBackend backend = QuickTaskCLIBackend::codex;
    // As typed (trimmed), without the block of attached paths.
    QString prompt;
    QString workingDirectory;
    QList<PromptAttachment> attachments;
    std::optional<QuickTaskSourceContext> sourceContext;
    QDateTime startedAt;
    std::optional<QDateTime> finishedAt;
    Status status = Status::running;
    std::optional<QString> finalResponse;
    // codex's thread id.
    std::optional<QString> threadID;
    std::optional<qint32> exitStatus;

    bool isRunning() const noexcept { return status == Status::running; }
    bool hasFinalResponse() const { return finalResponse && !finalResponse->isEmpty(); }

    // "running", "succeeded", "failed", "cancelled".
    static QString statusRawValue(Status status);
    static std::optional<Status> statusFromRawValue(const QString &rawValue);
    // What the user reads: "Running", "Succeeded", "Failed", "Stopped".
    static QString statusTitle(Status status);

    QJsonObject toJson() const;
    // Throws DecodingError.
    static QuickTaskSession fromJson(const QJsonObject &object);

    friend bool operator==(const QuickTaskSession &, const QuickTaskSession &) = default;
};
