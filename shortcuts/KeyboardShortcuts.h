#pragma once

#include "shortcuts/ShortcutName.h"

#include <QObject>
#include <QString>

#include <optional>

class UserDefaults;

// The user's shortcut for each name, kept in the user defaults under "KeyboardShortcuts_<name>":
// the JSON text of the shortcut, or false when the user cleared a name that has a default (so
// the default does not come back). A missing key means the default. Nothing is cached; every
// read goes to the store.
class KeyboardShortcuts final : public QObject {
    Q_OBJECT

public:
    explicit KeyboardShortcuts(UserDefaults &defaults, QObject *parent = nullptr);
    KeyboardShortcuts(UserDefaults &defaults, ShortcutDisplayStyle displayStyle, QObject *parent = nullptr);

    static const QString keyPrefix;
    // The name the change is known by to the rest of the system.
    static const QString shortcutByNameDidChangeNotification;
    static QString storageKey(const ShortcutName &name);

    std::optional<Shortcut> getShortcut(const ShortcutName &name) const;
    // None clears: false when the name has a default, otherwise the key is removed.
    void setShortcut(const std::optional<Shortcut> &shortcut, const ShortcutName &name);

    ShortcutDisplayStyle displayStyle() const { return m_displayStyle; }
    QString displayText(const Shortcut &shortcut) const { return shortcut.displayText(m_displayStyle); }

Q_SIGNALS:
    // After any write of a shortcut to the same user defaults, through this or another instance.
    void shortcutByNameDidChange(const QString &name);

private:
    UserDefaults &m_defaults;
    ShortcutDisplayStyle m_displayStyle;
};
