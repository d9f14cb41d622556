#include "platform/linux/X11HotKeyMapping.h"

#include <X11/keysym.h>

#include <array>

namespace {

// The core protocol's modifier masks (xproto.h), spelled out so this file needs no xcb.
constexpr quint16 shiftMask = 1 << 0;
constexpr quint16 lockMask = 1 << 1;
constexpr quint16 controlMask = 1 << 2;
constexpr quint16 mod1Mask = 1 << 3;
constexpr quint16 mod4Mask = 1 << 6;

struct NamedKey {
    Qt::Key qtKey;
    bool keypad;
    quint32 keySymbol;
    // The key symbol's name, which the desktop's shortcut syntax uses.
    const char *name;
};

// Keys whose symbol is not simply their Latin-1 character.
constexpr std::array namedKeys{
    NamedKey{Qt::Key_Return, false, XK_Return, "Return"},
    NamedKey{Qt::Key_Tab, false, XK_Tab, "Tab"},
    NamedKey{Qt::Key_Space, false, XK_space, "space"},
    NamedKey{Qt::Key_Backspace, false, XK_BackSpace, "BackSpace"},
    NamedKey{Qt::Key_Escape, false, XK_Escape, "Escape"},
    NamedKey{Qt::Key_Delete, false, XK_Delete, "Delete"},
    NamedKey{Qt::Key_Insert, false, XK_Insert, "Insert"},
    NamedKey{Qt::Key_Home, false, XK_Home, "Home"},
    NamedKey{Qt::Key_End, false, XK_End, "End"},
    NamedKey{Qt::Key_PageUp, false, XK_Page_Up, "Page_Up"},
    NamedKey{Qt::Key_PageDown, false, XK_Page_Down, "Page_Down"},
    NamedKey{Qt::Key_Left, false, XK_Left, "Left"},
    NamedKey{Qt::Key_Right, false, XK_Right, "Right"},
    NamedKey{Qt::Key_Up, false, XK_Up, "Up"},
    NamedKey{Qt::Key_Down, false, XK_Down, "Down"},
    NamedKey{Qt::Key_Equal, false, XK_equal, "equal"},
    NamedKey{Qt::Key_Minus, false, XK_minus, "minus"},
    NamedKey{Qt::Key_BracketLeft, false, XK_bracketleft, "bracketleft"},
    NamedKey{Qt::Key_BracketRight, false, XK_bracketright, "bracketright"},
    NamedKey{Qt::Key_Apostrophe, false, XK_apostrophe, "apostrophe"},
    NamedKey{Qt::Key_Semicolon, false, XK_semicolon, "semicolon"},
    NamedKey{Qt::Key_Backslash, false, XK_backslash, "backslash"},
    NamedKey{Qt::Key_Comma, false, XK_comma, "comma"},
    NamedKey{Qt::Key_Slash, false, XK_slash, "slash"},
    NamedKey{Qt::Key_Period, false, XK_period, "period"},
    NamedKey{Qt::Key_QuoteLeft, false, XK_grave, "grave"},
    NamedKey{Qt::Key_Period, true, XK_KP_Decimal, "KP_Decimal"},
    NamedKey{Qt::Key_Asterisk, true, XK_KP_Multiply, "KP_Multiply"},
    NamedKey{Qt::Key_Plus, true, XK_KP_Add, "KP_Add"},
    NamedKey{Qt::Key_Slash, true, XK_KP_Divide, "KP_Divide"},
    NamedKey{Qt::Key_Minus, true, XK_KP_Subtract, "KP_Subtract"},
    NamedKey{Qt::Key_Equal, true, XK_KP_Equal, "KP_Equal"},
    NamedKey{Qt::Key_Enter, true, XK_KP_Enter, "KP_Enter"},
    NamedKey{Qt::Key_Clear, true, XK_Clear, "Clear"},
};

struct Key {
    quint32 keySymbol;
    QString name;
};

std::optional<Key> keyOf(const Shortcut &shortcut)
{
    const std::optional<QKeyCombination> combination = shortcut.toQtKeyCombination();
    if (!combination)
        return std::nullopt;
    const int key = combination->key();
    const bool keypad = combination->keyboardModifiers().testFlag(Qt::KeypadModifier);
    for (const NamedKey &named : namedKeys) {
        if (named.qtKey == key && named.keypad == keypad)
            return Key{named.keySymbol, QString::fromLatin1(named.name)};
    }
    if (keypad && key >= Qt::Key_0 && key <= Qt::Key_9)
        return Key{quint32(XK_KP_0 + (key - Qt::Key_0)), QStringLiteral("KP_%1").arg(key - Qt::Key_0)};
    if (key >= Qt::Key_F1 && key <= Qt::Key_F35)
        return Key{quint32(XK_F1 + (key - Qt::Key_F1)), QStringLiteral("F%1").arg(key - Qt::Key_F1 + 1)};
    if (key >= Qt::Key_0 && key <= Qt::Key_9)
        return Key{quint32(key), QString(QChar(key))};
    // Qt names letters by their capital; their key symbol is the small letter.
    if (key >= Qt::Key_A && key <= Qt::Key_Z) {
        const QChar small = QChar(key).toLower();
        return Key{small.unicode(), QString(small)};
    }
    return std::nullopt;
}

} // namespace

namespace X11HotKeyMapping {

std::optional<quint32> keySymbol(const Shortcut &shortcut)
{
    const std::optional<Key> key = keyOf(shortcut);
    return key ? std::optional(key->keySymbol) : std::nullopt;
}

quint16 modifierMask(int carbonModifiers)
{
    quint16 mask = 0;
    if (carbonModifiers & CarbonModifiers::command)
        mask |= controlMask;
    if (carbonModifiers & CarbonModifiers::shift)
        mask |= shiftMask;
    if (carbonModifiers & CarbonModifiers::option)
        mask |= mod1Mask;
    if (carbonModifiers & CarbonModifiers::control)
        mask |= mod4Mask;
    return mask;
}

quint16 modifierMaskOf(const QList<quint8> &modifierMapping, int keycodesPerModifier,
                       const QList<quint8> &keycodes)
{
    if (keycodesPerModifier <= 0)
        return 0;
    for (int modifier = 0; modifier < 8; ++modifier) {
        for (int slot = 0; slot < keycodesPerModifier; ++slot) {
            const qsizetype index = qsizetype(modifier) * keycodesPerModifier + slot;
            if (index >= modifierMapping.size())
                return 0;
            const quint8 keycode = modifierMapping[index];
            if (keycode != 0 && keycodes.contains(keycode))
                return quint16(1 << modifier);
        }
    }
    return 0;
}

QList<quint16> lockMaskVariants(quint16 numLockMask, quint16 scrollLockMask)
{
    QList<quint16> variants;
    for (const quint16 caps : {quint16(0), lockMask}) {
        for (const quint16 num : {quint16(0), numLockMask}) {
            for (const quint16 scroll : {quint16(0), scrollLockMask}) {
                const quint16 mask = caps | num | scroll;
                if (!variants.contains(mask))
                    variants.append(mask);
            }
        }
    }
    return variants;
}

QString portalTrigger(const Shortcut &shortcut)
{
    const std::optional<Key> key = keyOf(shortcut);
    if (!key)
        return {};
    QString trigger;
    if (shortcut.carbonModifiers & CarbonModifiers::command)
        trigger += QStringLiteral("CTRL+");
    if (shortcut.carbonModifiers & CarbonModifiers::option)
        trigger += QStringLiteral("ALT+");
    if (shortcut.carbonModifiers & CarbonModifiers::shift)
        trigger += QStringLiteral("SHIFT+");
    if (shortcut.carbonModifiers & CarbonModifiers::control)
        trigger += QStringLiteral("LOGO+");
    return trigger + key->name;
}

} // namespace X11HotKeyMapping
