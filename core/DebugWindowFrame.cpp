#include "core/DebugWindowFrame.h"

namespace {

// QJsonObject sorts its keys; the probe's readers get them in field order, so the object is
// written by hand from JSON-encoded values.
QByteArray member(const char *key, const QByteArray &value)
{
    return '"' + QByteArray(key) + "\":" + value;
}

QByteArray number(double value)
{
    // Whole numbers without a fraction, like every other encoder of the asking tools.
    if (value == double(qint64(value)))
        return QByteArray::number(qint64(value));
    return QByteArray::number(value, 'g', 17);
}

QByteArray encodedRect(const DebugWindowRect &rect)
{
    return '{' + member("x", number(rect.x)) + ',' + member("y", number(rect.y)) + ',' +
           member("width", number(rect.width)) + ',' + member("height", number(rect.height)) + '}';
}

} // namespace

namespace DebugWindowTargets {

QString rawValue(DebugWindowTarget target)
{
    switch (target) {
    case DebugWindowTarget::preferences:
        break;
    }
    return QStringLiteral("preferences");
}

std::optional<DebugWindowTarget> fromRawValue(const QString &rawValue)
{
    if (rawValue == u"preferences")
        return DebugWindowTarget::preferences;
    return std::nullopt;
}

} // namespace DebugWindowTargets

QByteArray DebugWindowFrameResponse::encoded() const
{
    QByteArray json = '{' + member("target", '"' + DebugWindowTargets::rawValue(target).toUtf8() + '"') +
                      ',' + member("windowNumber", QByteArray::number(windowNumber)) + ',' +
                      member("frame", encodedRect(frame)) + ',' +
                      member("contentFrame", encodedRect(contentFrame));
    if (screenVisibleFrame)
        json += ',' + member("screenVisibleFrame", encodedRect(*screenVisibleFrame));
    return json + '}';
}

std::optional<DebugWindowRequest> DebugWindowRequest::fromUserInfo(const QMap<QString, QString> &userInfo)
{
    const std::optional<DebugWindowTarget> target =
        DebugWindowTargets::fromRawValue(userInfo.value(QStringLiteral("target")));
    const QString path = userInfo.value(QStringLiteral("response"));
    if (!target || path.isEmpty())
        return std::nullopt;
    return DebugWindowRequest{*target, path};
}
