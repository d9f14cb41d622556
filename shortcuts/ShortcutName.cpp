#include "shortcuts/ShortcutName.h"

#include <array>

namespace ShortcutNames {
namespace {

Shortcut commandShortcut(int keyCode)
{
    return Shortcut{keyCode, CarbonModifiers::command};
}

} // namespace

const ShortcutName &openScratchComposer()
{
    static const ShortcutName name{QStringLiteral("openScratchComposer"), std::nullopt};
    return name;
}

const ShortcutName &toggleVoicePrompt()
{
    static const ShortcutName name{QStringLiteral("toggleVoicePrompt"), commandShortcut(CarbonKeyCodes::r)};
    return name;
}

const ShortcutName &searchPromptHistory()
{
    static const ShortcutName name{
        QStringLiteral("searchPromptHistory"),
        Shortcut{CarbonKeyCodes::h, CarbonModifiers::command | CarbonModifiers::shift}};
    return name;
}

const QList<ShortcutName> &quickTaskPresets()
{
    static const QList<ShortcutName> names = [] {
        // Digit keys are not in order on the Mac keyboard map.
        constexpr std::array digitKeys{
            CarbonKeyCodes::digit1, CarbonKeyCodes::digit2, CarbonKeyCodes::digit3,
            CarbonKeyCodes::digit4, CarbonKeyCodes::digit5, CarbonKeyCodes::digit6,
            CarbonKeyCodes::digit7, CarbonKeyCodes::digit8, CarbonKeyCodes::digit9};
        QList<ShortcutName> list;
        for (std::size_t index = 0; index < digitKeys.size(); ++index) {
            list.append(ShortcutName{QStringLiteral("quickTaskPreset%1").arg(index + 1),
                                     commandShortcut(digitKeys[index])});
        }
        return list;
    }();
    return names;
}

std::optional<ShortcutName> quickTaskPreset(int position)
{
    if (position < 1 || position > quickTaskPresets().size())
        return std::nullopt;
    return quickTaskPresets().at(position - 1);
}

const QList<ShortcutName> &all()
{
    static const QList<ShortcutName> names = [] {
        QList<ShortcutName> list{openScratchComposer(), toggleVoicePrompt(), searchPromptHistory()};
        list.append(quickTaskPresets());
        return list;
    }();
    return names;
}

std::optional<ShortcutName> named(const QString &rawValue)
{
    for (const ShortcutName &name : all()) {
        if (name.rawValue == rawValue)
            return name;
    }
    return std::nullopt;
}

} // namespace ShortcutNames
