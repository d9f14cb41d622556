#include "shortcuts/ShortcutRecording.h"

#include "shortcuts/KeyboardShortcuts.h"

namespace {

bool isFunctionKey(const Shortcut &shortcut)
{
    const std::optional<QKeyCombination> combination = shortcut.toQtKeyCombination();
    return combination && combination->key() >= Qt::Key_F1 && combination->key() <= Qt::Key_F35;
}

} // namespace

namespace ShortcutRecording {

ShortcutRecordingOutcome evaluate(const Shortcut &candidate, const ShortcutName &name,
                                  const KeyboardShortcuts &shortcuts)
{
    constexpr int chordModifiers =
        CarbonModifiers::command | CarbonModifiers::option | CarbonModifiers::control;
    if (!(candidate.carbonModifiers & chordModifiers) && !isFunctionKey(candidate)) {
        const bool mac = shortcuts.displayStyle() == ShortcutDisplayStyle::mac;
        return {false,
                mac ? QStringLiteral("Hold \u2318, \u2325 or \u2303 with the key, or use a function key.")
                    : QStringLiteral("Hold Ctrl, Alt or Super with the key, or use a function key.")};
    }
    for (const ShortcutName &other : ShortcutNames::all()) {
        if (other.rawValue == name.rawValue || shortcuts.getShortcut(other) != candidate)
            continue;
        return {false, shortcuts.displayText(candidate) + QStringLiteral(" is already used ") +
                           purpose(other) + u'.'};
    }
    return {true, QString()};
}

QString purpose(const ShortcutName &name)
{
    if (name == ShortcutNames::openScratchComposer())
        return QStringLiteral("to open a quick-task composer");
    if (name == ShortcutNames::toggleVoicePrompt())
        return QStringLiteral("to start or stop dictation");
    if (name == ShortcutNames::searchPromptHistory())
        return QStringLiteral("to search earlier prompts");
    const qsizetype position = ShortcutNames::quickTaskPresets().indexOf(name);
    if (position >= 0)
        return QStringLiteral("for preset %1").arg(position + 1);
    return QStringLiteral("for ") + name.rawValue;
}

} // namespace ShortcutRecording
