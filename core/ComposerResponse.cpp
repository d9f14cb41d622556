#include "core/ComposerResponse.h"

#include "core/JSONCoding.h"

namespace {
const QString kId = QStringLiteral("id");
const QString kRespondedAt = QStringLiteral("respondedAt");
const QString kDisposition = QStringLiteral("disposition");
const QString kUpdatedText = QStringLiteral("updatedText");
} // namespace

QString ComposerResponse::rawValue(Disposition disposition)
{
    return disposition == Disposition::submitted ? QStringLiteral("submitted") : QStringLiteral("cancelled");
}

std::optional<ComposerResponse::Disposition> ComposerResponse::dispositionFromRawValue(const QString &rawValue)
{
    if (rawValue == u"submitted")
        return Disposition::submitted;
    if (rawValue == u"cancelled")
        return Disposition::cancelled;
    return std::nullopt;
}

QJsonObject ComposerResponse::toJson() const
{
    QJsonObject object{
        {kId, JSONCoding::encodeUuid(id)},
        {kRespondedAt, JSONCoding::encodeDate(respondedAt)},
        {kDisposition, rawValue(disposition)},
    };
    JSONCoding::insertOptional(object, kUpdatedText, updatedText);
    return object;
}

ComposerResponse ComposerResponse::fromJson(const QJsonObject &object)
{
    ComposerResponse response;
    response.id = JSONCoding::requiredUuid(object, kId);
    response.respondedAt = JSONCoding::requiredDate(object, kRespondedAt);
    const QString raw = JSONCoding::requiredString(object, kDisposition);
    const auto disposition = dispositionFromRawValue(raw);
    if (!disposition)
        throw DecodingError(QStringLiteral("\u201c%1\u201d is not a known disposition.").arg(raw));
    response.disposition = *disposition;
    response.updatedText = JSONCoding::optionalString(object, kUpdatedText);
    return response;
}
