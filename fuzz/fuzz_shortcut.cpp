#include "core/UserDefaults.h"
#include "fuzz/FuzzSupport.h"
#include "shortcuts/KeyboardShortcuts.h"
#include "shortcuts/Shortcut.h"

// A shortcut as the settings file keeps it: JSON text a person may have edited. Whatever is read
// is shown in the preferences and turned into a key combination.
namespace {
void use(const std::optional<Shortcut> &shortcut)
{
    if (!shortcut)
        return;
    shortcut->displayText(ShortcutDisplayStyle::standard);
    shortcut->displayText(ShortcutDisplayStyle::mac);
    shortcut->toQtKeyCombination();
    shortcut->qtModifiers();
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = Fuzz::bytes(data, size);
    use(Fuzz::checkRoundTrip<Shortcut>(input));

    static UserDefaults defaults(QDir(Fuzz::scratchFolder()).filePath(QStringLiteral("Tarvel.conf")));
    static KeyboardShortcuts shortcuts(defaults);
    const ShortcutName &name = ShortcutNames::toggleVoicePrompt();
    defaults.setString(KeyboardShortcuts::storageKey(name), QString::fromUtf8(input));
    use(shortcuts.getShortcut(name));
    return 0;
}
