#pragma once

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>

struct ErrorLogEntry {
    QUuid id;
    QString title;
    QString detail;
    QString source;
    QDateTime recordedAt;

    QJsonObject toJson() const;
    // Throws DecodingError.
    static ErrorLogEntry fromJson(const QJsonObject &object);

    friend bool operator==(const ErrorLogEntry &, const ErrorLogEntry &) = default;
};
