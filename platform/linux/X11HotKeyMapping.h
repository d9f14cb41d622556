#pragma once

#include "shortcuts/Shortcut.h"

#include <QList>
#include <QString>
#include <QtGlobal>

#include <optional>

// How a stored shortcut becomes an X key grab, and how the desktop portal writes it. Pure
// functions over the X protocol's numbers, so they are tested without a display.
namespace X11HotKeyMapping {

// The X key symbol of the shortcut's key, unshifted (Ctrl+Shift+K grabs "k" with Shift). None for a
// key this system does not know.
std::optional<quint32> keySymbol(const Shortcut &shortcut);

// The core modifier mask: Command is Ctrl here, the Mac's Control is Super (Mod4), Option is Alt
// (Mod1).
quint16 modifierMask(int carbonModifiers);

// The mask of the modifier (Shift, Lock, Control, Mod1...Mod5) that one of keycodes is mapped to, in
// the layout of GetModifierMapping's reply: eight rows of keycodesPerModifier keycodes. 0 when none
// of them is a modifier.
quint16 modifierMaskOf(const QList<quint8> &modifierMapping, int keycodesPerModifier,
                       const QList<quint8> &keycodes);

// Every combination of the lock modifiers (Caps Lock and the masks Num Lock and Scroll Lock are
// mapped to, 0 when unmapped), each once: a grab matches the state exactly, so each needs its own.
QList<quint16> lockMaskVariants(quint16 numLockMask, quint16 scrollLockMask);

// The trigger in the desktop's shortcut syntax ("CTRL+ALT+k"), empty for an unknown key.
QString portalTrigger(const Shortcut &shortcut);

} // namespace X11HotKeyMapping
