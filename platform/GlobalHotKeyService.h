#pragma once

#include "shortcuts/Shortcut.h"

#include <QObject>
#include <QString>

#include <memory>
#include <optional>

// Key combinations that reach the application whichever window has the keyboard. Registrations
// are addressed by a caller's id; pressed and released carry it back.
class GlobalHotKeyService : public QObject {
    Q_OBJECT

public:
    using QObject::QObject;

    // This system's service (X11 grab, the desktop portal on Wayland, Carbon on the Mac). Create it
    // after the QGuiApplication.
    static std::unique_ptr<GlobalHotKeyService> create(QObject *parent = nullptr);

    // Empty when system-wide shortcuts can work in this session; otherwise one sentence for the
    // user saying why not and what would make them work.
    virtual QString unavailableReason() const = 0;
    // Registers the combination under id (replacing an earlier one of that id). Returns an empty
    // string on success, else a user-facing sentence.
    virtual QString registerHotKey(int id, const Shortcut &shortcut) = 0;
    virtual void unregisterHotKey(int id) = 0;

    // Where the desktop binds system-wide keys itself and lets no application do it (sway, GNOME
    // without the portal): how the user binds the shortcut to starting Tarvel, which opens a
    // quick-task composer in the running copy, as one sentence with the exact line. Empty where
    // this service registers shortcuts itself, and where Tarvel knows no such way.
    virtual QString manualBindingInstructions(const std::optional<Shortcut> &shortcut) const
    {
        Q_UNUSED(shortcut);
        return {};
    }

Q_SIGNALS:
    void pressed(int id);
    void released(int id);
};
