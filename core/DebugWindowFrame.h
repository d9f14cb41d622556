#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

#include <optional>

// What an outside tool can ask the running application to measure: the window it names and where
// that window is, in screen coordinates (points; on X11 the origin is the top left of the screen).
enum class DebugWindowTarget { preferences };

namespace DebugWindowTargets {
QString rawValue(DebugWindowTarget target);
// Any string but a known raw value gives none.
std::optional<DebugWindowTarget> fromRawValue(const QString &rawValue);
} // namespace DebugWindowTargets

struct DebugWindowRect {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    friend bool operator==(const DebugWindowRect &, const DebugWindowRect &) = default;
};

struct DebugWindowFrameResponse {
    DebugWindowTarget target = DebugWindowTarget::preferences;
    qint64 windowNumber = 0;
    DebugWindowRect frame;
    DebugWindowRect contentFrame;
    // None when the window is on no screen; the key is then left out.
    std::optional<DebugWindowRect> screenVisibleFrame;

    // Compact JSON with the keys in field order, as the asking tools expect.
    QByteArray encoded() const;
};

// The request's user information, read: both values present, the target known, the path not
// empty. Anything else gives none.
struct DebugWindowRequest {
    DebugWindowTarget target = DebugWindowTarget::preferences;
    QString responsePath;

    static std::optional<DebugWindowRequest> fromUserInfo(const QMap<QString, QString> &userInfo);
};
