#pragma once

#include "platform/ColorSchemeSource.h"

#include <QObject>
#include <QPalette>

#include <memory>

// Gives every window the desktop's light or dark look: a dark palette when the desktop asks for
// dark, the style's light one when it asks for light, and the palette Tarvel started with when it
// states no preference. Windows repaint themselves on the change.
class AppearanceController final : public QObject {
    Q_OBJECT

public:
    explicit AppearanceController(std::unique_ptr<ColorSchemeSource> source, QObject *parent = nullptr);
    ~AppearanceController() override;

    static QPalette darkPalette();

private:
    void apply(ColorSchemeSource::Scheme scheme);

    std::unique_ptr<ColorSchemeSource> m_source;
    QPalette m_original;
};
