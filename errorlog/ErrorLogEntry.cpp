#include "errorlog/ErrorLogEntry.h"

#include "core/JSONCoding.h"

namespace {
const QString kId = QStringLiteral("id");
const QString kTitle = QStringLiteral("title");
const QString kDetail = QStringLiteral("detail");
const QString kSource = QStringLiteral("source");
const QString kRecordedAt = QStringLiteral("recordedAt");
} // namespace

QJsonObject ErrorLogEntry::toJson() const
{
    return QJsonObject{
        {kId, JSONCoding::encodeUuid(id)},
        {kTitle, title},
        {kDetail, detail},
        {kSource, source},
        {kRecordedAt, JSONCoding::encodeDate(recordedAt)},
    };
}

ErrorLogEntry ErrorLogEntry::fromJson(const QJsonObject &object)
{
    return ErrorLogEntry{
        JSONCoding::requiredUuid(object, kId),
        JSONCoding::requiredString(object, kTitle),
        JSONCoding::requiredString(object, kDetail),
        JSONCoding::requiredString(object, kSource),
        JSONCoding::requiredDate(object, kRecordedAt),
    };
}
