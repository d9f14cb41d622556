#include "shortcuts/Shortcut.h"

#include "core/JSONCoding.h"
#include "platform/HostPlatform.h"

#include <array>

namespace {

struct KeyEntry {
    int carbonKeyCode;
    Qt::Key qtKey;
    bool keypad;
    // Null: the same as the standard name.
    const char16_t *standardName;
    const char16_t *macName;
};

// Mac virtual key codes (ANSI layout) and the Qt key each one produces unshifted. The first entry of a
// key code is its canonical Qt key.
constexpr std::array keyTable{
    KeyEntry{0x00, Qt::Key_A, false, u"A", nullptr},
    KeyEntry{0x0B, Qt::Key_B, false, u"B", nullptr},
    KeyEntry{0x08, Qt::Key_C, false, u"C", nullptr},
    KeyEntry{0x02, Qt::Key_D, false, u"D", nullptr},
    KeyEntry{0x0E, Qt::Key_E, false, u"E", nullptr},
    KeyEntry{0x03, Qt::Key_F, false, u"F", nullptr},
    KeyEntry{0x05, Qt::Key_G, false, u"G", nullptr},
    KeyEntry{0x04, Qt::Key_H, false, u"H", nullptr},
    KeyEntry{0x22, Qt::Key_I, false, u"I", nullptr},
    KeyEntry{0x26, Qt::Key_J, false, u"J", nullptr},
    KeyEntry{0x28, Qt::Key_K, false, u"K", nullptr},
    KeyEntry{0x25, Qt::Key_L, false, u"L", nullptr},
    KeyEntry{0x2E, Qt::Key_M, false, u"M", nullptr},
    KeyEntry{0x2D, Qt::Key_N, false, u"N", nullptr},
    KeyEntry{0x1F, Qt::Key_O, false, u"O", nullptr},
    KeyEntry{0x23, Qt::Key_P, false, u"P", nullptr},
    KeyEntry{0x0C, Qt::Key_Q, false, u"Q", nullptr},
    KeyEntry{0x0F, Qt::Key_R, false, u"R", nullptr},
    KeyEntry{0x01, Qt::Key_S, false, u"S", nullptr},
    KeyEntry{0x11, Qt::Key_T, false, u"T", nullptr},
    KeyEntry{0x20, Qt::Key_U, false, u"U", nullptr},
    KeyEntry{0x09, Qt::Key_V, false, u"V", nullptr},
    KeyEntry{0x0D, Qt::Key_W, false, u"W", nullptr},
    KeyEntry{0x07, Qt::Key_X, false, u"X", nullptr},
    KeyEntry{0x10, Qt::Key_Y, false, u"Y", nullptr},
    KeyEntry{0x06, Qt::Key_Z, false, u"Z", nullptr},
    KeyEntry{0x12, Qt::Key_1, false, u"1", nullptr},
    KeyEntry{0x13, Qt::Key_2, false, u"2", nullptr},
    KeyEntry{0x14, Qt::Key_3, false, u"3", nullptr},
    KeyEntry{0x15, Qt::Key_4, false, u"4", nullptr},
    KeyEntry{0x17, Qt::Key_5, false, u"5", nullptr},
    KeyEntry{0x16, Qt::Key_6, false, u"6", nullptr},
    KeyEntry{0x1A, Qt::Key_7, false, u"7", nullptr},
    KeyEntry{0x1C, Qt::Key_8, false, u"8", nullptr},
    KeyEntry{0x19, Qt::Key_9, false, u"9", nullptr},
    KeyEntry{0x1D, Qt::Key_0, false, u"0", nullptr},
    KeyEntry{0x18, Qt::Key_Equal, false, u"=", nullptr},
    KeyEntry{0x1B, Qt::Key_Minus, false, u"-", nullptr},
    KeyEntry{0x1E, Qt::Key_BracketRight, false, u"]", nullptr},
    KeyEntry{0x21, Qt::Key_BracketLeft, false, u"[", nullptr},
    KeyEntry{0x27, Qt::Key_Apostrophe, false, u"'", nullptr},
    KeyEntry{0x29, Qt::Key_Semicolon, false, u";", nullptr},
    KeyEntry{0x2A, Qt::Key_Backslash, false, u"\\", nullptr},
    KeyEntry{0x2B, Qt::Key_Comma, false, u",", nullptr},
    KeyEntry{0x2C, Qt::Key_Slash, false, u"/", nullptr},
    KeyEntry{0x2F, Qt::Key_Period, false, u".", nullptr},
    KeyEntry{0x32, Qt::Key_QuoteLeft, false, u"`", nullptr},
    // With Shift held Qt reports the shifted character; on a US layout it sits on these keys.
    KeyEntry{0x12, Qt::Key_Exclam, false, nullptr, nullptr},
    KeyEntry{0x13, Qt::Key_At, false, nullptr, nullptr},
    KeyEntry{0x14, Qt::Key_NumberSign, false, nullptr, nullptr},
    KeyEntry{0x15, Qt::Key_Dollar, false, nullptr, nullptr},
    KeyEntry{0x17, Qt::Key_Percent, false, nullptr, nullptr},
    KeyEntry{0x16, Qt::Key_AsciiCircum, false, nullptr, nullptr},
    KeyEntry{0x1A, Qt::Key_Ampersand, false, nullptr, nullptr},
    KeyEntry{0x1C, Qt::Key_Asterisk, false, nullptr, nullptr},
    KeyEntry{0x19, Qt::Key_ParenLeft, false, nullptr, nullptr},
    KeyEntry{0x1D, Qt::Key_ParenRight, false, nullptr, nullptr},
    KeyEntry{0x18, Qt::Key_Plus, false, nullptr, nullptr},
    KeyEntry{0x1B, Qt::Key_Underscore, false, nullptr, nullptr},
    KeyEntry{0x1E, Qt::Key_BraceRight, false, nullptr, nullptr},
    KeyEntry{0x21, Qt::Key_BraceLeft, false, nullptr, nullptr},
    KeyEntry{0x27, Qt::Key_QuoteDbl, false, nullptr, nullptr},
    KeyEntry{0x29, Qt::Key_Colon, false, nullptr, nullptr},
    KeyEntry{0x2A, Qt::Key_Bar, false, nullptr, nullptr},
    KeyEntry{0x2B, Qt::Key_Less, false, nullptr, nullptr},
    KeyEntry{0x2C, Qt::Key_Question, false, nullptr, nullptr},
    KeyEntry{0x2F, Qt::Key_Greater, false, nullptr, nullptr},
    KeyEntry{0x32, Qt::Key_AsciiTilde, false, nullptr, nullptr},
    KeyEntry{0x24, Qt::Key_Return, false, u"Return", u"\u21A9"},
    KeyEntry{0x30, Qt::Key_Tab, false, u"Tab", u"\u21E5"},
    KeyEntry{0x30, Qt::Key_Backtab, false, nullptr, nullptr},
    KeyEntry{0x31, Qt::Key_Space, false, u"Space", u"Space"},
    KeyEntry{0x33, Qt::Key_Backspace, false, u"Backspace", u"\u232B"},
    KeyEntry{0x35, Qt::Key_Escape, false, u"Esc", u"\u238B"},
    KeyEntry{0x75, Qt::Key_Delete, false, u"Del", u"\u2326"},
    KeyEntry{0x72, Qt::Key_Insert, false, u"Ins", u"Help"},
    KeyEntry{0x72, Qt::Key_Help, false, nullptr, nullptr},
    KeyEntry{0x73, Qt::Key_Home, false, u"Home", u"\u2196"},
    KeyEntry{0x77, Qt::Key_End, false, u"End", u"\u2198"},
    KeyEntry{0x74, Qt::Key_PageUp, false, u"PgUp", u"\u21DE"},
    KeyEntry{0x79, Qt::Key_PageDown, false, u"PgDown", u"\u21DF"},
    KeyEntry{0x7B, Qt::Key_Left, false, u"Left", u"\u2190"},
    KeyEntry{0x7C, Qt::Key_Right, false, u"Right", u"\u2192"},
    KeyEntry{0x7D, Qt::Key_Down, false, u"Down", u"\u2193"},
    KeyEntry{0x7E, Qt::Key_Up, false, u"Up", u"\u2191"},
    KeyEntry{0x7A, Qt::Key_F1, false, u"F1", nullptr},
    KeyEntry{0x78, Qt::Key_F2, false, u"F2", nullptr},
    KeyEntry{0x63, Qt::Key_F3, false, u"F3", nullptr},
    KeyEntry{0x76, Qt::Key_F4, false, u"F4", nullptr},
    KeyEntry{0x60, Qt::Key_F5, false, u"F5", nullptr},
    KeyEntry{0x61, Qt::Key_F6, false, u"F6", nullptr},
    KeyEntry{0x62, Qt::Key_F7, false, u"F7", nullptr},
    KeyEntry{0x64, Qt::Key_F8, false, u"F8", nullptr},
    KeyEntry{0x65, Qt::Key_F9, false, u"F9", nullptr},
    KeyEntry{0x6D, Qt::Key_F10, false, u"F10", nullptr},
    KeyEntry{0x67, Qt::Key_F11, false, u"F11", nullptr},
    KeyEntry{0x6F, Qt::Key_F12, false, u"F12", nullptr},
    KeyEntry{0x69, Qt::Key_F13, false, u"F13", nullptr},
    KeyEntry{0x6B, Qt::Key_F14, false, u"F14", nullptr},
    KeyEntry{0x71, Qt::Key_F15, false, u"F15", nullptr},
    KeyEntry{0x6A, Qt::Key_F16, false, u"F16", nullptr},
    KeyEntry{0x40, Qt::Key_F17, false, u"F17", nullptr},
    KeyEntry{0x4F, Qt::Key_F18, false, u"F18", nullptr},
    KeyEntry{0x50, Qt::Key_F19, false, u"F19", nullptr},
    KeyEntry{0x5A, Qt::Key_F20, false, u"F20", nullptr},
    KeyEntry{0x52, Qt::Key_0, true, u"Num+0", u"0"},
    KeyEntry{0x53, Qt::Key_1, true, u"Num+1", u"1"},
    KeyEntry{0x54, Qt::Key_2, true, u"Num+2", u"2"},
    KeyEntry{0x55, Qt::Key_3, true, u"Num+3", u"3"},
    KeyEntry{0x56, Qt::Key_4, true, u"Num+4", u"4"},
    KeyEntry{0x57, Qt::Key_5, true, u"Num+5", u"5"},
    KeyEntry{0x58, Qt::Key_6, true, u"Num+6", u"6"},
    KeyEntry{0x59, Qt::Key_7, true, u"Num+7", u"7"},
    KeyEntry{0x5B, Qt::Key_8, true, u"Num+8", u"8"},
    KeyEntry{0x5C, Qt::Key_9, true, u"Num+9", u"9"},
    KeyEntry{0x41, Qt::Key_Period, true, u"Num+.", u"."},
    KeyEntry{0x43, Qt::Key_Asterisk, true, u"Num+*", u"*"},
    KeyEntry{0x45, Qt::Key_Plus, true, u"Num++", u"+"},
    KeyEntry{0x4B, Qt::Key_Slash, true, u"Num+/", u"/"},
    KeyEntry{0x4E, Qt::Key_Minus, true, u"Num+-", u"-"},
    KeyEntry{0x51, Qt::Key_Equal, true, u"Num+=", u"="},
    KeyEntry{0x4C, Qt::Key_Enter, true, u"Enter", u"\u2324"},
    KeyEntry{0x47, Qt::Key_Clear, true, u"Clear", u"\u2327"},
};

const KeyEntry *entryForQtKey(int key, bool keypad)
{
    // Prefer the entry on the same side of the keyboard; Enter and Clear come without the keypad flag too.
    for (const bool wantKeypad : {keypad, !keypad}) {
        for (const KeyEntry &entry : keyTable) {
            if (entry.qtKey == key && entry.keypad == wantKeypad)
                return &entry;
        }
    }
    return nullptr;
}

const KeyEntry *entryForCarbonKeyCode(int keyCode)
{
    for (const KeyEntry &entry : keyTable) {
        if (entry.carbonKeyCode == keyCode)
            return &entry;
    }
    return nullptr;
}

int carbonModifierMask(Qt::KeyboardModifiers modifiers)
{
    int mask = 0;
    if (modifiers & Qt::ControlModifier)
        mask |= CarbonModifiers::command;
    if (modifiers & Qt::ShiftModifier)
        mask |= CarbonModifiers::shift;
    if (modifiers & Qt::AltModifier)
        mask |= CarbonModifiers::option;
    if (modifiers & Qt::MetaModifier)
        mask |= CarbonModifiers::control;
    return mask;
}

QString keyName(int keyCode, ShortcutDisplayStyle style)
{
    const KeyEntry *entry = entryForCarbonKeyCode(keyCode);
    if (!entry)
        return QStringLiteral("Key %1").arg(keyCode);
    const char16_t *name =
        style == ShortcutDisplayStyle::mac && entry->macName ? entry->macName : entry->standardName;
    return QString::fromUtf16(name);
}

int requiredInteger(const QJsonObject &object, const QString &key)
{
    const std::optional<qint32> value = JSONCoding::optionalInt32(object, key);
    if (!value)
        throw DecodingError(QStringLiteral("The required key \u201c%1\u201d is missing.").arg(key));
    return *value;
}

} // namespace

ShortcutDisplayStyle nativeShortcutDisplayStyle()
{
    return HostPlatform::usesMacConventions() ? ShortcutDisplayStyle::mac : ShortcutDisplayStyle::standard;
}

std::optional<Shortcut> Shortcut::fromQtKey(int key, Qt::KeyboardModifiers modifiers)
{
    const KeyEntry *entry = entryForQtKey(key, modifiers.testFlag(Qt::KeypadModifier));
    if (!entry)
        return std::nullopt;
    return Shortcut{entry->carbonKeyCode, carbonModifierMask(modifiers)};
}

std::optional<Shortcut> Shortcut::fromKeyEvent(const ShortcutKeyEvent &event)
{
    return fromQtKey(event.key, event.modifiers);
}

Qt::KeyboardModifiers Shortcut::qtModifiers() const
{
    Qt::KeyboardModifiers modifiers;
    if (carbonModifiers & CarbonModifiers::command)
        modifiers |= Qt::ControlModifier;
    if (carbonModifiers & CarbonModifiers::shift)
        modifiers |= Qt::ShiftModifier;
    if (carbonModifiers & CarbonModifiers::option)
        modifiers |= Qt::AltModifier;
    if (carbonModifiers & CarbonModifiers::control)
        modifiers |= Qt::MetaModifier;
    return modifiers;
}

std::optional<QKeyCombination> Shortcut::toQtKeyCombination() const
{
    const KeyEntry *entry = entryForCarbonKeyCode(carbonKeyCode);
    if (!entry)
        return std::nullopt;
    Qt::KeyboardModifiers modifiers = qtModifiers();
    if (entry->keypad)
        modifiers |= Qt::KeypadModifier;
    return QKeyCombination(modifiers, entry->qtKey);
}

QString Shortcut::displayText(ShortcutDisplayStyle style) const
{
    QString text;
    if (style == ShortcutDisplayStyle::mac) {
        // The Mac's fixed order: Control, Option, Shift, Command, then the key, with no separators.
        if (carbonModifiers & CarbonModifiers::control)
            text += u'\u2303';
        if (carbonModifiers & CarbonModifiers::option)
            text += u'\u2325';
        if (carbonModifiers & CarbonModifiers::shift)
            text += u'\u21E7';
        if (carbonModifiers & CarbonModifiers::command)
            text += u'\u2318';
        return text + keyName(carbonKeyCode, style);
    }
    // The order Qt and the Linux desktops use: Super, Ctrl, Alt, Shift.
    if (carbonModifiers & CarbonModifiers::control)
        text += QStringLiteral("Super+");
    if (carbonModifiers & CarbonModifiers::command)
        text += QStringLiteral("Ctrl+");
    if (carbonModifiers & CarbonModifiers::option)
        text += QStringLiteral("Alt+");
    if (carbonModifiers & CarbonModifiers::shift)
        text += QStringLiteral("Shift+");
    return text + keyName(carbonKeyCode, style);
}

QJsonObject Shortcut::toJson() const
{
    return QJsonObject{
        {QStringLiteral("carbonKeyCode"), carbonKeyCode},
        {QStringLiteral("carbonModifiers"), carbonModifiers},
    };
}

Shortcut Shortcut::fromJson(const QJsonObject &object)
{
    return Shortcut{requiredInteger(object, QStringLiteral("carbonKeyCode")),
                    requiredInteger(object, QStringLiteral("carbonModifiers"))};
}
