#pragma once

#include "settings/QuickTaskPreset.h"

#include <QJsonObject>
#include <QList>

#include <optional>

// The presets of one backend, in menu order (position n = index n - 1), and the selected one.
struct QuickTaskPresetSettings {
    static constexpr int maximumPresetCount = 9;

    QList<QuickTaskPreset> presets;
    int selectedPresetIndex = 0;

    // What the stored settings of a backend (none when nothing is stored) read as: at most nine
    // presets, each sanitised; the best and fast defaults when none are left; a selection that
    // points at an available preset where one exists.
    static QuickTaskPresetSettings sanitized(const std::optional<QuickTaskPresetSettings> &stored,
                                             const QList<QuickTaskModelCatalog::Model> &models,
                                             QuickTaskCLIBackend backend);
    QuickTaskPresetSettings sanitized(const QList<QuickTaskModelCatalog::Model> &models,
                                      QuickTaskCLIBackend backend) const;

    // preferredIndex when its preset is available, else the first available one, else preferredIndex
    // unchanged; 0 when preferredIndex is outside the list.
    int resolvedSelectedPresetIndex(QuickTaskCLIBackend backend, int preferredIndex,
                                    const QList<QuickTaskModelCatalog::Model> &models) const;

    QJsonObject toJson() const;
    // Throws DecodingError.
    static QuickTaskPresetSettings fromJson(const QJsonObject &object);

    friend bool operator==(const QuickTaskPresetSettings &, const QuickTaskPresetSettings &) = default;
};
