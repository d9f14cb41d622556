#pragma once

#include <QRect>
#include <QString>

#include <optional>

class UserDefaults;

// Remembers where the user left the scratch composer, as a rectangle (UserDefaults::rect) under the
// user-defaults key "ScratchWindowFrame".
class ScratchWindowFrameStore final {
public:
    explicit ScratchWindowFrameStore(UserDefaults &defaults);

    static QString key();

    void save(const QRect &frame);

    // The remembered frame fitted to the panel as it is now (see
    // PanelPlacement::restoredScratchFrame); nothing if none is remembered or it is unreadable.
    std::optional<QRect> restoredFrame(const QRect &current, const std::optional<QRect> &workArea) const;

private:
    UserDefaults &m_defaults;
};
