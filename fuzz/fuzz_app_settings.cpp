#include "core/UserDefaults.h"
#include "fuzz/FuzzSupport.h"
#include "settings/AppSettings.h"

// The settings file as the user (or another version) left it: the backend, its presets and its
// voice choice, read against the catalogs of tests/data the way the application reads them at
// start. What is read is written back fitted, so reading it again must give the same.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    qputenv("CODEX_HOME", TARVEL_TEST_DATA_DIR "/codex");
    qputenv("XDG_CONFIG_HOME", TARVEL_TEST_DATA_DIR);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    UserDefaults defaults(Fuzz::writeScratchFile(QStringLiteral("Tarvel.conf"), Fuzz::bytes(data, size)));
    AppSettings settings(defaults);
    settings.resetQuickTaskConfigurationForCurrentSchemaIfNeeded();
    settings.quickTaskCLIBackend();
    const QuickTaskPresetSettings presets = settings.quickTaskPresetSettings();
    Fuzz::require(settings.quickTaskPresetSettings() == presets, "fitted presets read back the same");
    settings.selectedQuickTaskPreset();
    settings.voicePromptRewriteModelIdentifier();
    settings.voicePromptRewriteReasoningEffort();
    settings.voicePromptRewritePreset();
    settings.areCompletionNotificationsEnabled();
    settings.quickTaskLastWorkingDirectory();
    settings.speechRecognizerCommand();
    return 0;
}
