#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>

#include <optional>

// The application's answer to one request. Lives in Responses/<UUID>.json until
// tarvel-edit collects it.
struct ComposerResponse {
    enum class Disposition { submitted, cancelled };

    QUuid id;
    QDateTime respondedAt;
    Disposition disposition = Disposition::cancelled;
    std::optional<QString> updatedText;

    static QString rawValue(Disposition disposition);
    static std::optional<Disposition> dispositionFromRawValue(const QString &rawValue);

    QJsonObject toJson() const;
    // Throws DecodingError.
    static ComposerResponse fromJson(const QJsonObject &object);

    friend bool operator==(const ComposerResponse &, const ComposerResponse &) = default;
};
