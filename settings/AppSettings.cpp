#include "settings/AppSettings.h"

#include "backends/BackendProfiles.h"
#include "core/UserDefaults.h"
#include "settings/StoredByBackend.h"

#include <functional>

using Model = BackendModel;

const QString AppSettings::quickTaskBackendKey = QStringLiteral("QuickTaskBackend");
const QString AppSettings::quickTaskPresetSettingsByBackendKey =
    QStringLiteral("QuickTaskPresetSettingsByBackend");
const QString AppSettings::voicePromptRewriteSettingsByBackendKey =
    QStringLiteral("VoicePromptRewriteSettingsByBackend");
const QString AppSettings::quickTaskConfigurationSchemaVersionKey =
    QStringLiteral("QuickTaskConfigurationSchemaVersion");
const QString AppSettings::completionNotificationsEnabledKey =
    QStringLiteral("CompletionNotificationsEnabled");
const QString AppSettings::quickTaskLastWorkingDirectoryKey = QStringLiteral("QuickTaskLastWorkingDirectory");
const QString AppSettings::speechRecognizerCommandKey = QStringLiteral("SpeechRecognizerCommand");

namespace {

std::optional<QString> nonEmpty(const std::optional<QString> &text)
{
    if (!text || text->trimmed().isEmpty())
        return std::nullopt;
    return text->trimmed();
}

template<typename T> StoredByBackend<T> loadContainer(const UserDefaults &defaults, const QString &key)
{
    return defaults.record<StoredByBackend<T>>(key).value_or(StoredByBackend<T>());
}

// Reading sanitises and writes back; skipping identical writes keeps a reader that reacts to
// user-defaults changes from triggering itself.
template<typename T>
void storeContainerIfChanged(UserDefaults &defaults, const QString &key, const StoredByBackend<T> &container)
{
    const QByteArray encoded = JSONCoding::encodeRecord(container);
    if (defaults.data(key) != encoded)
        defaults.setData(key, encoded);
}

std::optional<VoicePromptRewriteSelection> voiceSelection(const UserDefaults &defaults,
                                                          QuickTaskCLIBackend backend)
{
    return loadContainer<VoicePromptRewriteSelection>(defaults,
                                                      AppSettings::voicePromptRewriteSettingsByBackendKey)
        .slot(backend);
}

void updateVoiceSelection(UserDefaults &defaults, QuickTaskCLIBackend backend,
                          const std::function<void(VoicePromptRewriteSelection &)> &change)
{
    auto container = loadContainer<VoicePromptRewriteSelection>(
        defaults, AppSettings::voicePromptRewriteSettingsByBackendKey);
    VoicePromptRewriteSelection selection = container.slot(backend).value_or(VoicePromptRewriteSelection());
    change(selection);
    container.setSlot(backend, selection);
    defaults.setRecord(AppSettings::voicePromptRewriteSettingsByBackendKey, container);
}

std::optional<QString> voiceModelIdentifier(UserDefaults &defaults, QuickTaskCLIBackend backend,
                                            const QList<Model> &models)
{
    const std::optional<VoicePromptRewriteSelection> selection = voiceSelection(defaults, backend);
    if (!selection || !selection->overrideEnabled)
        return std::nullopt;
    const std::optional<QString> identifier = nonEmpty(selection->modelIdentifier);
    if (!identifier)
        return std::nullopt;
    const BackendProfile &profile = BackendProfiles::of(backend);
    if (!profile.checksModelsAgainstCatalog())
        return nonEmpty(profile.canonicalModelIdentifier(*identifier));
    // With no catalog to check against (codex has not written its cache yet) the choice is not used,
    // but it is kept: the model may well be back once the cache is.
    if (models.isEmpty())
        return std::nullopt;
    for (const Model &model : models) {
        if (model.identifier == *identifier)
            return identifier;
    }
    updateVoiceSelection(defaults, backend,
                         [](VoicePromptRewriteSelection &stale) { stale.modelIdentifier = std::nullopt; });
    return std::nullopt;
}

} // namespace

AppSettings::AppSettings(UserDefaults &defaults)
    : m_defaults(defaults)
{
}

const QStringList &AppSettings::obsoleteKeys()
{
    static const QStringList keys{QStringLiteral("QuickTaskPresetSettings"),
                                  QStringLiteral("QuickTaskPresetMigrationVersion"),
                                  QStringLiteral("QuickTaskFavoriteSettings"),
                                  QStringLiteral("VoicePromptRewriteModel"),
                                  QStringLiteral("VoicePromptRewriteReasoningEffort"),
                                  QStringLiteral("VoicePromptRewriteModelOverrideEnabled")};
    return keys;
}

void AppSettings::removeObsoleteKeys()
{
    for (const QString &key : obsoleteKeys()) {
        if (m_defaults.contains(key))
            m_defaults.remove(key);
    }
}

void AppSettings::normalizeQuickTaskCLIBackend()
{
    const QString normalized = BackendProfiles::of(quickTaskCLIBackend()).rawValue();
    if (m_defaults.string(quickTaskBackendKey) != normalized)
        m_defaults.setString(quickTaskBackendKey, normalized);
}

void AppSettings::resetQuickTaskConfigurationForCurrentSchemaIfNeeded()
{
    if (m_defaults.integer(quickTaskConfigurationSchemaVersionKey).value_or(0) >=
        currentQuickTaskConfigurationSchemaVersion) {
        return;
    }
    m_defaults.remove(quickTaskPresetSettingsByBackendKey);
    m_defaults.remove(voicePromptRewriteSettingsByBackendKey);
    m_defaults.setInteger(quickTaskConfigurationSchemaVersionKey, currentQuickTaskConfigurationSchemaVersion);
}

QuickTaskCLIBackend AppSettings::quickTaskCLIBackend() const
{
    const std::optional<QString> stored = m_defaults.string(quickTaskBackendKey);
    const std::optional<QuickTaskCLIBackend> backend =
        stored ? BackendProfiles::fromRawValue(*stored) : std::nullopt;
    return backend.value_or(BackendProfiles::all().constFirst()->backend());
}

void AppSettings::setQuickTaskCLIBackend(QuickTaskCLIBackend backend)
{
    m_defaults.setString(quickTaskBackendKey, BackendProfiles::of(backend).rawValue());
}

QuickTaskPresetSettings AppSettings::quickTaskPresetSettings() const
{
    const QuickTaskCLIBackend backend = quickTaskCLIBackend();
    const QList<Model> models = BackendProfiles::of(backend).availableModels();
    auto container = loadContainer<QuickTaskPresetSettings>(m_defaults, quickTaskPresetSettingsByBackendKey);
    const QuickTaskPresetSettings settings =
        QuickTaskPresetSettings::sanitized(container.slot(backend), models, backend);
    container.setSlot(backend, settings);
    storeContainerIfChanged(m_defaults, quickTaskPresetSettingsByBackendKey, container);
    return settings;
}

void AppSettings::setQuickTaskPresetSettings(const QuickTaskPresetSettings &settings)
{
    const QuickTaskCLIBackend backend = quickTaskCLIBackend();
    const QList<Model> models = BackendProfiles::of(backend).availableModels();
    auto container = loadContainer<QuickTaskPresetSettings>(m_defaults, quickTaskPresetSettingsByBackendKey);
    container.setSlot(backend, settings.sanitized(models, backend));
    m_defaults.setRecord(quickTaskPresetSettingsByBackendKey, container);
}

std::optional<QuickTaskPreset> AppSettings::selectedQuickTaskPreset() const
{
    const QuickTaskPresetSettings settings = quickTaskPresetSettings();
    const int index = settings.selectedPresetIndex;
    if (index < 0 || index >= settings.presets.size())
        return std::nullopt;
    const BackendProfile &profile = BackendProfiles::of(quickTaskCLIBackend());
    const QuickTaskPreset &preset = settings.presets.at(index);
    if (!profile.isAvailable(preset, profile.availableModels()))
        return std::nullopt;
    return preset;
}

bool AppSettings::areCompletionNotificationsEnabled() const
{
    return m_defaults.boolean(completionNotificationsEnabledKey).value_or(true);
}

void AppSettings::setCompletionNotificationsEnabled(bool enabled)
{
    m_defaults.setBool(completionNotificationsEnabledKey, enabled);
}

std::optional<QString> AppSettings::quickTaskLastWorkingDirectory() const
{
    const std::optional<QString> path = m_defaults.string(quickTaskLastWorkingDirectoryKey);
    if (!path || path->isEmpty())
        return std::nullopt;
    return path;
}

void AppSettings::setQuickTaskLastWorkingDirectory(const std::optional<QString> &path)
{
    if (path && !path->isEmpty())
        m_defaults.setString(quickTaskLastWorkingDirectoryKey, *path);
    else
        m_defaults.remove(quickTaskLastWorkingDirectoryKey);
}

std::optional<QString> AppSettings::voicePromptRewriteModelIdentifier() const
{
    const QuickTaskCLIBackend backend = quickTaskCLIBackend();
    return voiceModelIdentifier(m_defaults, backend, BackendProfiles::of(backend).availableModels());
}

void AppSettings::setVoicePromptRewriteModelIdentifier(const std::optional<QString> &identifier)
{
    const QuickTaskCLIBackend backend = quickTaskCLIBackend();
    std::optional<QString> chosen = nonEmpty(identifier);
    if (chosen)
        chosen = nonEmpty(BackendProfiles::of(backend).canonicalModelIdentifier(*chosen));
    updateVoiceSelection(m_defaults, backend, [&chosen](VoicePromptRewriteSelection &selection) {
        selection.modelIdentifier = chosen;
        selection.overrideEnabled = chosen.has_value();
    });
}

std::optional<QString> AppSettings::voicePromptRewriteReasoningEffort() const
{
    const std::optional<VoicePromptRewriteSelection> selection =
        voiceSelection(m_defaults, quickTaskCLIBackend());
    return selection ? nonEmpty(selection->reasoningEffort) : std::nullopt;
}

void AppSettings::setVoicePromptRewriteReasoningEffort(const std::optional<QString> &effort)
{
    const std::optional<QString> chosen = nonEmpty(effort);
    updateVoiceSelection(
        m_defaults, quickTaskCLIBackend(),
        [&chosen](VoicePromptRewriteSelection &selection) { selection.reasoningEffort = chosen; });
}

QuickTaskPreset AppSettings::voicePromptRewritePreset() const
{
    const QuickTaskCLIBackend backend = quickTaskCLIBackend();
    const BackendProfile &profile = BackendProfiles::of(backend);
    const QList<Model> models = profile.availableModels();
    QuickTaskPreset preset{profile.voiceDraft(voiceModelIdentifier(m_defaults, backend, models), models)};
    // Only an effort the chosen model takes.
    const std::optional<QString> effort = voicePromptRewriteReasoningEffort();
    if (effort && profile.acceptsReasoningEffort(preset, *effort, models))
        preset.reasoningEffort = *effort;
    return preset;
}

QString AppSettings::speechRecognizerCommand() const
{
    return m_defaults.string(speechRecognizerCommandKey).value_or(QString()).trimmed();
}

void AppSettings::setSpeechRecognizerCommand(const QString &command)
{
    if (command.trimmed().isEmpty())
        m_defaults.remove(speechRecognizerCommandKey);
    else
        m_defaults.setString(speechRecognizerCommandKey, command.trimmed());
}
