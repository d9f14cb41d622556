#pragma once

#include "backends/BackendModel.h"
#include "backends/QuickTaskCLIBackend.h"
#include "settings/QuickTaskModelCatalog.h"
#include "settings/QuickTaskPresetSettings.h"

#include <QList>
#include <QString>
#include <QStringList>

// The rules of the preferences' preset table and its model and thinking pop-ups.
namespace PresetEditorRules {

// The catalog's rows for the backend; for a backend that resolves models itself, a model typed
// into the settings by hand that matches none of them is kept selectable as "custom (<model>)".
QList<QuickTaskPresetModelOption> effectiveModelOptions(const QString &selecting, QuickTaskCLIBackend backend,
                                                        const QList<BackendModel> &models);

// The reasoning levels a model takes, in its own order: its catalog entry's, or for a hand-typed
// model of a backend that resolves models itself, those of the backend's default entry.
QStringList supportedLevels(const QString &model, QuickTaskCLIBackend backend,
                            const QList<BackendModel> &models);

struct ThinkingItem {
    QString title;
    QString value;

    friend bool operator==(const ThinkingItem &, const ThinkingItem &) = default;
};
// One item per level; "medium" is always titled "medium default", whatever the model's own default.
QList<ThinkingItem> thinkingItems(const QStringList &levels);

bool canAddPreset(const QuickTaskPresetSettings &settings);
bool canRemovePreset(const QuickTaskPresetSettings &settings, int selectedRow);
// The backend's added row appended; the caller selects it.
QuickTaskPresetSettings withAddedPreset(QuickTaskPresetSettings settings, QuickTaskCLIBackend backend);
// Without the row; the composer's selected preset stays the same preset where it can.
QuickTaskPresetSettings withRemovedPreset(QuickTaskPresetSettings settings, int row);

} // namespace PresetEditorRules
