#include "core/ComposerRequest.h"

#include "core/JSONCoding.h"

namespace {
const QString kId = QStringLiteral("id");
const QString kCreatedAt = QStringLiteral("createdAt");
const QString kCwd = QStringLiteral("cwd");
const QString kInitialText = QStringLiteral("initialText");
const QString kFilePath = QStringLiteral("filePath");
const QString kSourceBundle = QStringLiteral("sourceApplicationBundleIdentifier");
const QString kSourcePid = QStringLiteral("sourceApplicationPID");
const QString kActivationToken = QStringLiteral("activationToken");
} // namespace

QJsonObject ComposerRequest::toJson() const
{
    QJsonObject object{
        {kId, JSONCoding::encodeUuid(id)},
        {kCreatedAt, JSONCoding::encodeDate(createdAt)},
        {kInitialText, initialText},
    };
    JSONCoding::insertOptional(object, kCwd, cwd);
    JSONCoding::insertOptional(object, kFilePath, filePath);
    JSONCoding::insertOptional(object, kSourceBundle, sourceApplicationBundleIdentifier);
    JSONCoding::insertOptional(object, kSourcePid, sourceApplicationPID);
    JSONCoding::insertOptional(object, kActivationToken, activationToken);
    return object;
}

ComposerRequest ComposerRequest::fromJson(const QJsonObject &object)
{
    ComposerRequest request;
    request.id = JSONCoding::requiredUuid(object, kId);
    request.createdAt = JSONCoding::requiredDate(object, kCreatedAt);
    request.cwd = JSONCoding::optionalString(object, kCwd);
    request.initialText = JSONCoding::requiredString(object, kInitialText);
    request.filePath = JSONCoding::optionalString(object, kFilePath);
    request.sourceApplicationBundleIdentifier = JSONCoding::optionalString(object, kSourceBundle);
    request.sourceApplicationPID = JSONCoding::optionalInt32(object, kSourcePid);
    request.activationToken = JSONCoding::optionalString(object, kActivationToken);
    return request;
}
