#pragma once

#include "shortcuts/Shortcut.h"

#include <QList>
#include <QString>

#include <optional>

// Shortcuts are addressed by name; a name may bring a default that applies until the user
// records or clears one.
struct ShortcutName {
    QString rawValue;
    std::optional<Shortcut> defaultShortcut;

    friend bool operator==(const ShortcutName &, const ShortcutName &) = default;
};

namespace ShortcutNames {

// The system-wide hot key that opens a scratch composer; no default.
const ShortcutName &openScratchComposer();
// Inside a composer: start or stop dictation. Command-R.
const ShortcutName &toggleVoicePrompt();
// Inside a composer: search the earlier prompts. Command-Shift-H.
const ShortcutName &searchPromptHistory();
// Inside a composer: pick preset position 1 to 9. Command-1 to Command-9. Positions outside 1...9
// have no name.
std::optional<ShortcutName> quickTaskPreset(int position);
// The nine preset names, position 1 first; the composer walks them in this order.
const QList<ShortcutName> &quickTaskPresets();
// Every name the application defines.
const QList<ShortcutName> &all();
std::optional<ShortcutName> named(const QString &rawValue);

} // namespace ShortcutNames
