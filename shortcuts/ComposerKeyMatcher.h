#pragma once

#include "shortcuts/Shortcut.h"

#include <array>
#include <optional>

class KeyboardShortcuts;

// What the composer panel does with a key press before ordinary key handling.
enum class ComposerKeyAction { none, escape, paste, toggleVoicePrompt, selectPreset };

struct ComposerKeyMatch {
    ComposerKeyAction action = ComposerKeyAction::none;
    // For selectPreset: the preset's index in the list, 0 for position 1.
    int presetIndex = -1;

    friend bool operator==(const ComposerKeyMatch &, const ComposerKeyMatch &) = default;
};

// The shortcuts in force for the composer at one moment.
struct ComposerShortcutBindings {
    std::optional<Shortcut> toggleVoicePrompt;
    std::array<std::optional<Shortcut>, 9> quickTaskPresets;

    static ComposerShortcutBindings current(const KeyboardShortcuts &shortcuts);
};

namespace ComposerKeyMatcher {

// Escape, then Command-V, then the voice toggle, then presets 1 to 9: the first match wins, so a
// shortcut bound to two names acts for the earlier one.
ComposerKeyMatch match(const ShortcutKeyEvent &event, const ComposerShortcutBindings &bindings);
// The same against the shortcuts stored now.
ComposerKeyMatch match(const ShortcutKeyEvent &event, const KeyboardShortcuts &shortcuts);

} // namespace ComposerKeyMatcher
