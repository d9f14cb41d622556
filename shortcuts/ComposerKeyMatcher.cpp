#include "shortcuts/ComposerKeyMatcher.h"

#include "shortcuts/KeyboardShortcuts.h"

ComposerShortcutBindings ComposerShortcutBindings::current(const KeyboardShortcuts &shortcuts)
{
    ComposerShortcutBindings bindings;
    bindings.toggleVoicePrompt = shortcuts.getShortcut(ShortcutNames::toggleVoicePrompt());
    const QList<ShortcutName> &presetNames = ShortcutNames::quickTaskPresets();
    for (std::size_t index = 0; index < bindings.quickTaskPresets.size(); ++index)
        bindings.quickTaskPresets[index] = shortcuts.getShortcut(presetNames.at(qsizetype(index)));
    return bindings;
}

namespace ComposerKeyMatcher {

ComposerKeyMatch match(const ShortcutKeyEvent &event, const ComposerShortcutBindings &bindings)
{
    // The keypad flag says where a key is, not which modifiers are held.
    const Qt::KeyboardModifiers held = event.modifiers & ~Qt::KeyboardModifiers(Qt::KeypadModifier);
    if (event.key == Qt::Key_Escape && held == Qt::NoModifier)
        return {ComposerKeyAction::escape};
    if (event.key == Qt::Key_V && held == Qt::ControlModifier)
        return {ComposerKeyAction::paste};

    const std::optional<Shortcut> pressed = Shortcut::fromKeyEvent(event);
    if (!pressed)
        return {};
    if (bindings.toggleVoicePrompt == pressed)
        return {ComposerKeyAction::toggleVoicePrompt};
    for (std::size_t index = 0; index < bindings.quickTaskPresets.size(); ++index) {
        if (bindings.quickTaskPresets[index] == pressed)
            return {ComposerKeyAction::selectPreset, int(index)};
    }
    return {};
}

ComposerKeyMatch match(const ShortcutKeyEvent &event, const KeyboardShortcuts &shortcuts)
{
    return match(event, ComposerShortcutBindings::current(shortcuts));
}

} // namespace ComposerKeyMatcher
