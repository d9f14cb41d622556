#include "settings/QuickTaskPresetSettings.h"

#include "backends/BackendProfiles.h"
#include "core/JSONCoding.h"

#include <QJsonArray>

#include <algorithm>

using QuickTaskModelCatalog::Model;

namespace {
const QString kPresets = QStringLiteral("presets");
const QString kSelectedPresetIndex = QStringLiteral("selectedPresetIndex");
} // namespace

QuickTaskPresetSettings
QuickTaskPresetSettings::sanitized(const std::optional<QuickTaskPresetSettings> &stored,
                                   const QList<Model> &models, QuickTaskCLIBackend backend)
{
    const BackendProfile &profile = BackendProfiles::of(backend);
    QuickTaskPresetSettings result;
    if (stored) {
        for (const QuickTaskPreset &preset :
             stored->presets.first(std::min(stored->presets.size(), qsizetype(maximumPresetCount))))
            result.presets.append({profile.sanitized(preset, models)});
    }
    if (result.presets.isEmpty()) {
        result.presets = {{profile.defaultChoice(ModelRole::best, models)},
                          {profile.defaultChoice(ModelRole::fast, models)}};
    }
    const int lastIndex = int(result.presets.size()) - 1;
    const int preferredIndex = stored ? std::clamp(stored->selectedPresetIndex, 0, lastIndex) : 0;
    result.selectedPresetIndex = result.resolvedSelectedPresetIndex(backend, preferredIndex, models);
    return result;
}

QuickTaskPresetSettings QuickTaskPresetSettings::sanitized(const QList<Model> &models,
                                                           QuickTaskCLIBackend backend) const
{
    return sanitized(std::optional<QuickTaskPresetSettings>(*this), models, backend);
}

int QuickTaskPresetSettings::resolvedSelectedPresetIndex(QuickTaskCLIBackend backend, int preferredIndex,
                                                         const QList<Model> &models) const
{
    if (preferredIndex < 0 || preferredIndex >= presets.size())
        return 0;
    const BackendProfile &profile = BackendProfiles::of(backend);
    if (profile.isAvailable(presets.at(preferredIndex), models))
        return preferredIndex;
    for (int index = 0; index < presets.size(); ++index) {
        if (profile.isAvailable(presets.at(index), models))
            return index;
    }
    return preferredIndex;
}

QJsonObject QuickTaskPresetSettings::toJson() const
{
    QJsonArray array;
    for (const QuickTaskPreset &preset : presets)
        array.append(preset.toJson());
    return QJsonObject{{kPresets, array}, {kSelectedPresetIndex, selectedPresetIndex}};
}

QuickTaskPresetSettings QuickTaskPresetSettings::fromJson(const QJsonObject &object)
{
    QuickTaskPresetSettings settings;
    for (const QJsonValue &value : JSONCoding::requiredArray(object, kPresets))
        settings.presets.append(QuickTaskPreset::fromJson(JSONCoding::objectElement(value)));
    const std::optional<qint32> index = JSONCoding::optionalInt32(object, kSelectedPresetIndex);
    if (!index)
        throw DecodingError(
            QStringLiteral("The required key \u201c%1\u201d is missing.").arg(kSelectedPresetIndex));
    settings.selectedPresetIndex = *index;
    return settings;
}
