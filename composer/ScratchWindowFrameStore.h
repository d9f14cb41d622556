#pragma once

#include <QRect>
#include <QRectF>
#include <QString>

#include <optional>

class UserDefaults;

// Remembers where the user left the scratch composer, as the rectangle string
// "{{x, y}, {w, h}}" under the user-defaults key "ScratchWindowFrame".
class ScratchWindowFrameStore final {
public:
    explicit ScratchWindowFrameStore(UserDefaults &defaults);

    static QString key();

    void save(const QRect &frame);

    // The remembered frame fitted to the panel as it is now (see
    // PanelPlacement::restoredScratchFrame); nothing if none is remembered or it is unreadable.
    std::optional<QRect> restoredFrame(const QRect &current, const std::optional<QRect> &workArea) const;

    static QString frameString(const QRectF &frame);
    // Nothing for text of another shape.
    static std::optional<QRectF> parseFrameString(const QString &text);

private:
    UserDefaults &m_defaults;
};
