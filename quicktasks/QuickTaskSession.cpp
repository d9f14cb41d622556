#include "quicktasks/QuickTaskSession.h"

#include "backends/BackendProfiles.h"
#include "core/JSONCoding.h"

#include <QJsonArray>

namespace {
const QString kBundleIdentifier = QStringLiteral("bundleIdentifier");
const QString kProcessIdentifier = QStringLiteral("processIdentifier");

const QString kId = QStringLiteral("id");
const QString kBackend = QStringLiteral("backend");
const QString kPrompt = QStringLiteral("prompt");
const QString kWorkingDirectory = QStringLiteral("workingDirectory");
const QString kAttachments = QStringLiteral("attachments");
const QString kSourceContext = QStringLiteral("sourceContext");
const QString kStartedAt = QStringLiteral("startedAt");
const QString kFinishedAt = QStringLiteral("finishedAt");
const QString kStatus = QStringLiteral("status");
const QString kFinalResponse = QStringLiteral("finalResponse");
const QString kThreadID = QStringLiteral("threadID");
const QString kExitStatus = QStringLiteral("exitStatus");

[[noreturn]] void throwBadValue(const QString &key)
{
    throw DecodingError(QStringLiteral("The value of \u201c%1\u201d is not valid.").arg(key));
}
} // namespace

QJsonObject QuickTaskSourceContext::toJson() const
{
    QJsonObject object;
    JSONCoding::insertOptional(object, kBundleIdentifier, bundleIdentifier);
    JSONCoding::insertOptional(object, kProcessIdentifier, processIdentifier);
    return object;
}

QuickTaskSourceContext QuickTaskSourceContext::fromJson(const QJsonObject &object)
{
    return QuickTaskSourceContext{JSONCoding::optionalString(object, kBundleIdentifier),
                                  JSONCoding::optionalInt32(object, kProcessIdentifier)};
}

QString QuickTaskSession::statusRawValue(Status status)
{
    switch (status) {
    case Status::running:
        return QStringLiteral("running");
    case Status::succeeded:
        return QStringLiteral("succeeded");
    case Status::failed:
        return QStringLiteral("failed");
    case Status::cancelled:
        return QStringLiteral("cancelled");
    }
    Q_UNREACHABLE();
}

std::optional<QuickTaskSession::Status> QuickTaskSession::statusFromRawValue(const QString &rawValue)
{
    for (Status status : {Status::running, Status::succeeded, Status::failed, Status::cancelled}) {
        if (statusRawValue(status) == rawValue)
            return status;
    }
    return std::nullopt;
}

QString QuickTaskSession::statusTitle(Status status)
{
    switch (status) {
    case Status::running:
        return QStringLiteral("Running");
    case Status::succeeded:
        return QStringLiteral("Succeeded");
    case Status::failed:
        return QStringLiteral("Failed");
    case Status::cancelled:
        return QStringLiteral("Stopped");
    }
    Q_UNREACHABLE();
}

QJsonObject QuickTaskSession::toJson() const
{
    QJsonArray attachmentArray;
    for (const PromptAttachment &attachment : attachments)
        attachmentArray.append(attachment.toJson());
    QJsonObject object{
        {kId, JSONCoding::encodeUuid(id)},
        {kBackend, BackendProfiles::of(backend).rawValue()},
        {kPrompt, prompt},
        {kWorkingDirectory, workingDirectory},
        {kAttachments, attachmentArray},
        {kStartedAt, JSONCoding::encodeDate(startedAt)},
        {kStatus, statusRawValue(status)},
    };
    if (sourceContext)
        object.insert(kSourceContext, sourceContext->toJson());
    if (finishedAt)
        object.insert(kFinishedAt, JSONCoding::encodeDate(*finishedAt));
    JSONCoding::insertOptional(object, kFinalResponse, finalResponse);
    JSONCoding::insertOptional(object, kThreadID, threadID);
    JSONCoding::insertOptional(object, kExitStatus, exitStatus);
    return object;
}

QuickTaskSession QuickTaskSession::fromJson(const QJsonObject &object)
{
    QuickTaskSession session;
    session.id = JSONCoding::requiredUuid(object, kId);
    const std::optional<QuickTaskCLIBackend> backend =
        BackendProfiles::fromRawValue(JSONCoding::requiredString(object, kBackend));
    if (!backend)
        throwBadValue(kBackend);
    session.backend = *backend;
    session.prompt = JSONCoding::requiredString(object, kPrompt);
    session.workingDirectory = JSONCoding::requiredString(object, kWorkingDirectory);

    const QJsonValue attachments = object.value(kAttachments);
    if (!attachments.isArray())
        throwBadValue(kAttachments);
    for (const QJsonValue &value : attachments.toArray()) {
        if (!value.isObject())
            throwBadValue(kAttachments);
        session.attachments.append(PromptAttachment::fromJson(value.toObject()));
    }

    const QJsonValue sourceContext = object.value(kSourceContext);
    if (sourceContext.isObject())
        session.sourceContext = QuickTaskSourceContext::fromJson(sourceContext.toObject());
    else if (!sourceContext.isUndefined() && !sourceContext.isNull())
        throwBadValue(kSourceContext);

    session.startedAt = JSONCoding::requiredDate(object, kStartedAt);
    const QJsonValue finishedAt = object.value(kFinishedAt);
    if (!finishedAt.isUndefined() && !finishedAt.isNull())
        session.finishedAt = JSONCoding::decodeDate(finishedAt);

    const std::optional<Status> status = statusFromRawValue(JSONCoding::requiredString(object, kStatus));
    if (!status)
        throwBadValue(kStatus);
    session.status = *status;
    session.finalResponse = JSONCoding::optionalString(object, kFinalResponse);
    session.threadID = JSONCoding::optionalString(object, kThreadID);
    session.exitStatus = JSONCoding::optionalInt32(object, kExitStatus);
    return session;
}
