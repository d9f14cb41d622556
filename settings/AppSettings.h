#pragma once

#include "backends/QuickTaskCLIBackend.h"
#include "settings/QuickTaskPreset.h"
#include "settings/QuickTaskPresetSettings.h"

#include <QString>
#include <QStringList>

#include <optional>

class UserDefaults;

// The application's settings, read from and written to the user defaults on every call. Holds no
// state of its own, so any number of instances over the same store agree.
class AppSettings final {
public:
    explicit AppSettings(UserDefaults &defaults);

    // User-defaults keys.
    static const QString quickTaskBackendKey;
    static const QString quickTaskPresetSettingsByBackendKey;
    static const QString voicePromptRewriteSettingsByBackendKey;
    static const QString quickTaskConfigurationSchemaVersionKey;
    static const QString completionNotificationsEnabledKey;
    static const QString quickTaskLastWorkingDirectoryKey;
    static const QString speechRecognizerCommandKey;
    static constexpr int currentQuickTaskConfigurationSchemaVersion = 1;
    // Keys of earlier layouts that nothing reads any more, in a fixed order.
    static const QStringList &obsoleteKeys();

    // Start-up housekeeping.
    void removeObsoleteKeys();
    // Rewrites the stored backend as what it reads as, so "Claude" or junk becomes "codex".
    void normalizeQuickTaskCLIBackend();
    // Below the current schema the presets and voice choices of every backend are dropped once.
    void resetQuickTaskConfigurationForCurrentSchemaIfNeeded();

    // Anything but exactly "claude" or "opencode" reads as codex.
    QuickTaskCLIBackend quickTaskCLIBackend() const;
    void setQuickTaskCLIBackend(QuickTaskCLIBackend backend);

    // The current backend's presets, sanitised against its model catalog; the sanitised form is
    // written back at once.
    QuickTaskPresetSettings quickTaskPresetSettings() const;
    // Sanitises and stores the presets of the current backend; the other backends keep theirs.
    void setQuickTaskPresetSettings(const QuickTaskPresetSettings &settings);
    std::optional<QuickTaskPreset> selectedQuickTaskPreset() const;

    // Absent means on.
    bool areCompletionNotificationsEnabled() const;
    void setCompletionNotificationsEnabled(bool enabled);

    std::optional<QString> quickTaskLastWorkingDirectory() const;
    // None or an empty path forgets it.
    void setQuickTaskLastWorkingDirectory(const std::optional<QString> &path);

    // The current backend's voice-rewrite model when the user chose one that still exists. A codex or
    // claude model that has left the catalog is forgotten (the stored choice is cleared).
    std::optional<QString> voicePromptRewriteModelIdentifier() const;
    // None or empty goes back to the backend's default model.
    void setVoicePromptRewriteModelIdentifier(const std::optional<QString> &identifier);
    std::optional<QString> voicePromptRewriteReasoningEffort() const;
    void setVoicePromptRewriteReasoningEffort(const std::optional<QString> &effort);
    // The preset that drafts prompts from dictation for the current backend.
    QuickTaskPreset voicePromptRewritePreset() const;

    // The user's own speech recogniser: a command line that gets a WAV file's path as its last
    // argument and prints the transcript. Empty (or unset) means the built-in recogniser.
    QString speechRecognizerCommand() const;
    void setSpeechRecognizerCommand(const QString &command);

private:
    UserDefaults &m_defaults;
};
