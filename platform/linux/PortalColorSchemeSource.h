#pragma once

#include "platform/ColorSchemeSource.h"

#include <QDBusMessage>

// The desktop portal's org.freedesktop.appearance color-scheme setting, which GNOME and KDE set:
// read once without waiting for the answer, then followed through SettingChanged. Without a
// portal there is no preference.
class PortalColorSchemeSource final : public ColorSchemeSource {
    Q_OBJECT

public:
    PortalColorSchemeSource();

    Scheme scheme() const override { return m_scheme; }
    // The setting's value as the portal sends it, variants within variants around a number:
    // 1 dark, 2 light, anything else no preference.
    static Scheme fromPortalValue(const QVariant &value);

private Q_SLOTS:
    void settingChanged(const QDBusMessage &message);

private:
    void apply(Scheme scheme);

    Scheme m_scheme = Scheme::noPreference;
};
