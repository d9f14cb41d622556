#include "app/AppearanceController.h"

#include <QApplication>
#include <QStyle>

AppearanceController::AppearanceController(std::unique_ptr<ColorSchemeSource> source, QObject *parent)
    : QObject(parent)
    , m_source(std::move(source))
    , m_original(QApplication::palette())
{
    connect(m_source.get(), &ColorSchemeSource::schemeChanged, this, &AppearanceController::apply);
    apply(m_source->scheme());
}

AppearanceController::~AppearanceController() = default;

void AppearanceController::apply(ColorSchemeSource::Scheme scheme)
{
    switch (scheme) {
    case ColorSchemeSource::Scheme::dark:
        QApplication::setPalette(darkPalette());
        break;
    case ColorSchemeSource::Scheme::light:
        QApplication::setPalette(QApplication::style()->standardPalette());
        break;
    case ColorSchemeSource::Scheme::noPreference:
        QApplication::setPalette(m_original);
        break;
    }
}

QPalette AppearanceController::darkPalette()
{
    const QColor window(0x2b, 0x2d, 0x31);
    const QColor base(0x1e, 0x1f, 0x22);
    const QColor text(0xe3, 0xe5, 0xe8);
    const QColor muted(0x8c, 0x91, 0x99);
    QPalette palette(text, window, window.lighter(150), window.darker(150), window.lighter(120), text, base);
    palette.setColor(QPalette::Window, window);
    palette.setColor(QPalette::WindowText, text);
    palette.setColor(QPalette::Base, base);
    palette.setColor(QPalette::AlternateBase, window);
    palette.setColor(QPalette::Text, text);
    palette.setColor(QPalette::Button, QColor(0x37, 0x3a, 0x3f));
    palette.setColor(QPalette::ButtonText, text);
    palette.setColor(QPalette::BrightText, QColor(0xff, 0x6b, 0x60));
    palette.setColor(QPalette::Highlight, QColor(0x3d, 0x7b, 0xd6));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    palette.setColor(QPalette::Link, QColor(0x7a, 0xa7, 0xff));
    palette.setColor(QPalette::LinkVisited, QColor(0xb0, 0x8c, 0xff));
    palette.setColor(QPalette::ToolTipBase, window.lighter(130));
    palette.setColor(QPalette::ToolTipText, text);
    palette.setColor(QPalette::PlaceholderText, muted);
    palette.setColor(QPalette::Light, window.lighter(160));
    palette.setColor(QPalette::Midlight, window.lighter(130));
    palette.setColor(QPalette::Mid, window.lighter(115));
    palette.setColor(QPalette::Dark, QColor(0x14, 0x15, 0x17));
    palette.setColor(QPalette::Shadow, Qt::black);
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, muted.darker(130));
    palette.setColor(QPalette::Disabled, QPalette::Highlight, window.lighter(140));
    return palette;
}
