#include "core/JSONCoding.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QRegularExpression>

#include <cmath>
#include <limits>

namespace JSONCoding {
namespace {

QByteArray escapeSlashes(QByteArray json)
{
    // Outside strings JSON never contains '/', so every slash is inside a string.
    return json.replace('/', "\\/");
}

QJsonDocument parse(const QByteArray &data)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(data, &error);
    if (error.error != QJsonParseError::NoError) {
        throw DecodingError(QStringLiteral("The data isn't valid JSON (%1 at offset %2).")
                                .arg(error.errorString())
                                .arg(error.offset));
    }
    return document;
}

QJsonValue requiredValue(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        throw DecodingError(QStringLiteral("The required key \u201c%1\u201d is missing.").arg(key));
    return value;
}

[[noreturn]] void throwTypeMismatch(const QString &key, const QString &expected)
{
    throw DecodingError(QStringLiteral("The value of \u201c%1\u201d is not %2.").arg(key, expected));
}

std::optional<QDateTime> parseInternetDateTime(const QString &text)
{
    // Full date, "T", full time with optional fraction, and a time-zone designator.
    static const QRegularExpression pattern(QStringLiteral(
        "^(\\d{4})-(\\d{2})-(\\d{2})T(\\d{2}):(\\d{2}):(\\d{2})(?:\\.(\\d+))?(Z|([+-])(\\d{2}):?(\\d{2}))$"));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    const QDate date(match.capturedView(1).toInt(), match.capturedView(2).toInt(),
                     match.capturedView(3).toInt());
    int milliseconds = 0;
    if (match.hasCaptured(7))
        milliseconds = match.captured(7).leftJustified(3, u'0', true).toInt();
    const QTime time(match.capturedView(4).toInt(), match.capturedView(5).toInt(),
                     match.capturedView(6).toInt(), milliseconds);
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    int offsetSeconds = 0;
    if (match.capturedView(8) != u"Z") {
        const int hours = match.capturedView(10).toInt();
        const int minutes = match.capturedView(11).toInt();
        if (hours > 23 || minutes > 59)
            return std::nullopt;
        offsetSeconds = (hours * 3600 + minutes * 60) * (match.capturedView(9) == u"-" ? -1 : 1);
    }
    return QDateTime(date, time, Qt::OffsetFromUTC, offsetSeconds).toUTC();
}

} // namespace

QByteArray encode(const QJsonObject &object)
{
    return escapeSlashes(QJsonDocument(object).toJson(QJsonDocument::Indented));
}

QByteArray encode(const QJsonArray &array)
{
    return escapeSlashes(QJsonDocument(array).toJson(QJsonDocument::Indented));
}

QJsonObject decodeObject(const QByteArray &data)
{
    const QJsonDocument document = parse(data);
    if (!document.isObject())
        throw DecodingError(QStringLiteral("The data is not a JSON object."));
    return document.object();
}

QJsonArray decodeArray(const QByteArray &data)
{
    const QJsonDocument document = parse(data);
    if (!document.isArray())
        throw DecodingError(QStringLiteral("The data is not a JSON array."));
    return document.array();
}

QDateTime referenceDate()
{
    return QDateTime(QDate(2001, 1, 1), QTime(0, 0), Qt::UTC);
}

QString encodeDate(const QDateTime &date)
{
    return date.toUTC().toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
}

QDateTime decodeDate(const QJsonValue &value)
{
    std::optional<QDateTime> date;
    if (value.isString()) {
        date = parseInternetDateTime(value.toString());
    } else if (value.isDouble()) {
        const double seconds = value.toDouble();
        // QDateTime holds milliseconds in 64 bits; anything beyond is no date.
        if (std::isfinite(seconds) && std::fabs(seconds) < 9.0e12)
            date = referenceDate().addMSecs(std::llround(seconds * 1000.0));
    }
    // Only the years the written form holds (four digits, in UTC): a date read must be written
    // back in a form that reads again.
    if (date && date->isValid() && date->date().year() >= 1 && date->date().year() <= 9999)
        return *date;
    throw DecodingError(
        QStringLiteral("Expected an ISO 8601 date string or a numeric reference-date timestamp."));
}

QString encodeUuid(const QUuid &uuid)
{
    return uuid.toString(QUuid::WithoutBraces).toUpper();
}

std::optional<QUuid> parseUuid(QStringView text)
{
    static const QRegularExpression pattern(
        QStringLiteral("^[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$"));
    if (!pattern.match(text.toString()).hasMatch())
        return std::nullopt;
    return QUuid::fromString(text);
}

QUuid requiredUuid(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = requiredValue(object, key);
    if (!value.isString())
        throwTypeMismatch(key, QStringLiteral("a string"));
    const auto uuid = parseUuid(value.toString());
    if (!uuid)
        throw DecodingError(QStringLiteral("The value of \u201c%1\u201d is not a UUID.").arg(key));
    return *uuid;
}

QDateTime requiredDate(const QJsonObject &object, const QString &key)
{
    return decodeDate(requiredValue(object, key));
}

QString requiredString(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = requiredValue(object, key);
    if (!value.isString())
        throwTypeMismatch(key, QStringLiteral("a string"));
    return value.toString();
}

QJsonArray requiredArray(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = requiredValue(object, key);
    if (!value.isArray())
        throwTypeMismatch(key, QStringLiteral("a list"));
    return value.toArray();
}

QJsonObject requiredObject(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = requiredValue(object, key);
    if (!value.isObject())
        throwTypeMismatch(key, QStringLiteral("an object"));
    return value.toObject();
}

QJsonObject objectElement(const QJsonValue &value)
{
    if (!value.isObject())
        throw DecodingError(QStringLiteral("An entry is not an object."));
    return value.toObject();
}

std::optional<QString> optionalString(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isString())
        throwTypeMismatch(key, QStringLiteral("a string"));
    return value.toString();
}

std::optional<qint32> optionalInt32(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isDouble())
        throwTypeMismatch(key, QStringLiteral("a number"));
    const double number = value.toDouble();
    if (number != std::floor(number) || number < std::numeric_limits<qint32>::min() ||
        number > std::numeric_limits<qint32>::max()) {
        throw DecodingError(
            QStringLiteral("The value of \u201c%1\u201d does not fit a 32-bit integer.").arg(key));
    }
    return static_cast<qint32>(number);
}

std::optional<bool> optionalBool(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined() || value.isNull())
        return std::nullopt;
    if (!value.isBool())
        throwTypeMismatch(key, QStringLiteral("true or false"));
    return value.toBool();
}

void insertOptional(QJsonObject &object, const QString &key, const std::optional<QString> &value)
{
    if (value)
        object.insert(key, *value);
}

void insertOptional(QJsonObject &object, const QString &key, const std::optional<qint32> &value)
{
    if (value)
        object.insert(key, *value);
}

} // namespace JSONCoding
