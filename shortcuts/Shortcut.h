#pragma once

#include <QJsonObject>
#include <QString>
#include <QtCore/qnamespace.h>

#include <optional>

// Shortcuts are stored the same way on every platform: a Mac virtual key code and a Mac modifier
// mask. A stored value therefore names the same key on a Mac and here; the mapping to Qt's keys
// happens only at the edges (key events in, key combinations out).
namespace CarbonModifiers {
inline constexpr int command = 0x0100;
inline constexpr int shift = 0x0200;
inline constexpr int option = 0x0800;
inline constexpr int control = 0x1000;
inline constexpr int all = command | shift | option | control;
} // namespace CarbonModifiers

namespace CarbonKeyCodes {
inline constexpr int a = 0x00;
inline constexpr int h = 0x04;
inline constexpr int r = 0x0F;
inline constexpr int v = 0x09;
inline constexpr int digit1 = 0x12;
inline constexpr int digit2 = 0x13;
inline constexpr int digit3 = 0x14;
inline constexpr int digit4 = 0x15;
inline constexpr int digit5 = 0x17;
inline constexpr int digit6 = 0x16;
inline constexpr int digit7 = 0x1A;
inline constexpr int digit8 = 0x1C;
inline constexpr int digit9 = 0x19;
inline constexpr int digit0 = 0x1D;
inline constexpr int returnKey = 0x24;
inline constexpr int tab = 0x30;
inline constexpr int space = 0x31;
inline constexpr int escape = 0x35;
inline constexpr int keypad1 = 0x53;
inline constexpr int f1 = 0x7A;
} // namespace CarbonKeyCodes

// How shortcuts are written for people: "⌘R" on a Mac, "Ctrl+R" elsewhere.
enum class ShortcutDisplayStyle { mac, standard };
ShortcutDisplayStyle nativeShortcutDisplayStyle();

// A key press as the composer sees it; filled from a QKeyEvent by the view.
struct ShortcutKeyEvent {
    int key = 0; // Qt::Key
    Qt::KeyboardModifiers modifiers;
    QString text;
};

struct Shortcut {
    int carbonKeyCode = 0;
    int carbonModifiers = 0;

    // The Command modifier is Qt's ControlModifier: the Ctrl key here, the Command key on a Mac
    // (where Qt also swaps them). Qt's MetaModifier is the Mac's Control key. Keys without a Mac
    // counterpart, and lone modifier keys, give none.
    static std::optional<Shortcut> fromQtKey(int key, Qt::KeyboardModifiers modifiers);
    static std::optional<Shortcut> fromKeyEvent(const ShortcutKeyEvent &event);

    // The unshifted key with its modifiers; keypad keys carry Qt::KeypadModifier. None for a key
    // code this system does not know.
    std::optional<QKeyCombination> toQtKeyCombination() const;
    Qt::KeyboardModifiers qtModifiers() const;

    QString displayText(ShortcutDisplayStyle style) const;

    QJsonObject toJson() const;
    // Throws DecodingError.
    static Shortcut fromJson(const QJsonObject &object);

    friend bool operator==(const Shortcut &, const Shortcut &) = default;
};
