#pragma once

#include "shortcuts/ShortcutName.h"

#include <QHash>
#include <QObject>
#include <QString>

#include <functional>
#include <map>
#include <optional>
#include <vector>

class GlobalHotKeyService;
class KeyboardShortcuts;

// Keeps the shortcut of each name that has handlers registered as a system-wide hot key, following
// the store as it changes, and runs the handlers when the key goes down or up.
class GlobalShortcutRegistrar final : public QObject {
    Q_OBJECT

public:
    GlobalShortcutRegistrar(KeyboardShortcuts &shortcuts, GlobalHotKeyService &service,
                            QObject *parent = nullptr);

    // Attach a handler; the first one of a name registers the name's current shortcut.
    void onKeyDown(const ShortcutName &name, std::function<void()> handler);
    void onKeyUp(const ShortcutName &name, std::function<void()> handler);

    // For a recorder, before it stores a new shortcut: moves the name's registration to shortcut
    // (none: no registration) and returns "" so that storing it afterwards changes nothing here; on
    // failure the earlier combination stays registered and the answer says why, for the user.
    QString tryRegister(const ShortcutName &name, const std::optional<Shortcut> &shortcut);
    // Why the name's shortcut is not registered: "" when it is, or when none is set.
    QString problem(const ShortcutName &name) const;

Q_SIGNALS:
    void registrationFailed(const QString &name, const QString &message);

private:
    struct Entry {
        ShortcutName name;
        int id = 0;
        std::optional<Shortcut> registered;
        QString problem;
        std::vector<std::function<void()>> keyDown;
        std::vector<std::function<void()>> keyUp;
    };

    Entry &entry(const ShortcutName &name);
    // Moves the entry's registration to shortcut, the earlier one unregistered first. On failure
    // either puts the earlier one back or leaves none. Returns the failure.
    QString move(Entry &entry, const std::optional<Shortcut> &shortcut, bool keepEarlierOnFailure);
    void shortcutChanged(const QString &name);
    void run(int id, bool down);

    KeyboardShortcuts &m_shortcuts;
    GlobalHotKeyService &m_service;
    std::map<QString, Entry> m_entries;
    QHash<int, QString> m_names;
};
