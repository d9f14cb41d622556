#pragma once

#include "core/TarvelError.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QUuid>

#include <optional>

// The one JSON form for every data file Tarvel writes or reads: pretty-printed with
// keys in byte order, slashes escaped, dates as whole-second UTC ISO 8601 strings.
// Reading is lenient about dates (fractional seconds, or seconds since 2001 as a
// number) and strict about everything else; failures throw DecodingError.
namespace JSONCoding {

QByteArray encode(const QJsonObject &object);
QByteArray encode(const QJsonArray &array);

QJsonObject decodeObject(const QByteArray &data);
QJsonArray decodeArray(const QByteArray &data);

// Records provide `QJsonObject toJson() const` and `static T fromJson(const QJsonObject &)`.
template<typename T> QByteArray encodeRecord(const T &record)
{
    return encode(record.toJson());
}

template<typename T> T decodeRecord(const QByteArray &data)
{
    return T::fromJson(decodeObject(data));
}

QString encodeDate(const QDateTime &date);
QDateTime decodeDate(const QJsonValue &value);
// The reference date of numeric timestamps: 2001-01-01 00:00:00 UTC.
QDateTime referenceDate();

QString encodeUuid(const QUuid &uuid);
// A canonical 36-character UUID in any case; nullopt for anything else.
std::optional<QUuid> parseUuid(QStringView text);

// Field readers: a missing key or null is absent for optional fields and an error
// for required ones; a value of the wrong type is always an error.
QUuid requiredUuid(const QJsonObject &object, const QString &key);
QDateTime requiredDate(const QJsonObject &object, const QString &key);
QString requiredString(const QJsonObject &object, const QString &key);
QJsonArray requiredArray(const QJsonObject &object, const QString &key);
QJsonObject requiredObject(const QJsonObject &object, const QString &key);
// An element of a list that must be an object.
QJsonObject objectElement(const QJsonValue &value);
std::optional<QString> optionalString(const QJsonObject &object, const QString &key);
std::optional<qint32> optionalInt32(const QJsonObject &object, const QString &key);
std::optional<bool> optionalBool(const QJsonObject &object, const QString &key);

// Field writers that leave an absent value out of the object.
void insertOptional(QJsonObject &object, const QString &key, const std::optional<QString> &value);
void insertOptional(QJsonObject &object, const QString &key, const std::optional<qint32> &value);

} // namespace JSONCoding
