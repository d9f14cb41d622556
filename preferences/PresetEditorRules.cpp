#include "preferences/PresetEditorRules.h"

#include "backends/BackendProfiles.h"

namespace PresetEditorRules {

QList<QuickTaskPresetModelOption> effectiveModelOptions(const QString &selecting, QuickTaskCLIBackend backend,
                                                        const QList<BackendModel> &models)
{
    const BackendProfile &profile = BackendProfiles::of(backend);
    QList<QuickTaskPresetModelOption> options = QuickTaskModelCatalog::presetModelOptions(backend, models);
    if (profile.checksModelsAgainstCatalog() || selecting.isEmpty() ||
        profile.resolvedModel({selecting, QString()}, models))
        return options;
    options.append({selecting, QStringLiteral("custom (") + selecting.toLower() + u')'});
    return options;
}

QStringList supportedLevels(const QString &model, QuickTaskCLIBackend backend,
                            const QList<BackendModel> &models)
{
    const BackendProfile &profile = BackendProfiles::of(backend);
    if (const std::optional<BackendModel> resolved = profile.resolvedModel({model, QString()}, models))
        return resolved->supportedReasoningLevels;
    if (!profile.checksModelsAgainstCatalog() && !models.isEmpty())
        return models.constFirst().supportedReasoningLevels;
    return {};
}

QList<ThinkingItem> thinkingItems(const QStringList &levels)
{
    QList<ThinkingItem> items;
    items.reserve(levels.size());
    for (const QString &level : levels)
        items.append({level == u"medium" ? QStringLiteral("medium default") : level, level});
    return items;
}

bool canAddPreset(const QuickTaskPresetSettings &settings)
{
    return settings.presets.size() < QuickTaskPresetSettings::maximumPresetCount;
}

bool canRemovePreset(const QuickTaskPresetSettings &settings, int selectedRow)
{
    return settings.presets.size() >= 2 && selectedRow >= 0 && selectedRow < settings.presets.size();
}

QuickTaskPresetSettings withAddedPreset(QuickTaskPresetSettings settings, QuickTaskCLIBackend backend)
{
    if (!canAddPreset(settings))
        return settings;
    QuickTaskPreset added;
    static_cast<ModelChoice &>(added) = BackendProfiles::of(backend).addedChoice();
    settings.presets.append(added);
    return settings;
}

QuickTaskPresetSettings withRemovedPreset(QuickTaskPresetSettings settings, int row)
{
    if (!canRemovePreset(settings, row))
        return settings;
    settings.presets.removeAt(row);
    if (settings.selectedPresetIndex > row)
        --settings.selectedPresetIndex;
    settings.selectedPresetIndex = std::min(settings.selectedPresetIndex, int(settings.presets.size()) - 1);
    return settings;
}

} // namespace PresetEditorRules
