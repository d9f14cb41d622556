#pragma once

#include "shortcuts/Shortcut.h"
#include "shortcuts/ShortcutName.h"

#include <QString>

class KeyboardShortcuts;

// What a recorder does with the key combination the user pressed for a name: take it, or say why
// not. Plain keys would fire while typing, so a combination needs Ctrl, Alt or Super (Command,
// Option or Control on the Mac) unless it is a function key; and one combination serves one name.
struct ShortcutRecordingOutcome {
    bool accepted = false;
    // Why not, as a sentence; empty when accepted.
    QString message;
};

namespace ShortcutRecording {

ShortcutRecordingOutcome evaluate(const Shortcut &candidate, const ShortcutName &name,
                                  const KeyboardShortcuts &shortcuts);
// What the name's shortcut does, to finish "… is already used …": "to start or stop dictation".
QString purpose(const ShortcutName &name);

} // namespace ShortcutRecording
