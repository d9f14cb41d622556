#pragma once

#include <QObject>

#include <memory>

// The colour scheme the desktop asks applications for, and its changes while Tarvel runs.
class ColorSchemeSource : public QObject {
    Q_OBJECT

public:
    enum class Scheme { noPreference, dark, light };

    // This system's source. Where the toolkit already follows the system's appearance (the Mac),
    // it never states a preference.
    static std::unique_ptr<ColorSchemeSource> create();

    using QObject::QObject;
    ~ColorSchemeSource() override = default;

    virtual Scheme scheme() const = 0;

Q_SIGNALS:
    void schemeChanged(ColorSchemeSource::Scheme scheme);
};
