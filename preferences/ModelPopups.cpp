#include "preferences/ModelPopups.h"

#include "backends/BackendProfiles.h"
#include "preferences/PresetEditorRules.h"

#include <QComboBox>

namespace ModelPopups {

void fillModels(QComboBox &popup, QuickTaskCLIBackend backend, const QList<BackendModel> &models,
                const QString &selecting)
{
    const BackendProfile &profile = BackendProfiles::of(backend);
    popup.clear();
    int selected = -1;
    for (const QuickTaskPresetModelOption &option :
         PresetEditorRules::effectiveModelOptions(selecting, backend, models)) {
        if (profile.canonicalModelIdentifier(option.identifier) ==
            profile.canonicalModelIdentifier(selecting))
            selected = popup.count();
        popup.addItem(option.title, option.identifier);
    }
    popup.setCurrentIndex(selected);
}

void fillThinking(QComboBox &popup, QuickTaskCLIBackend backend, const QList<BackendModel> &models,
                  const QString &model, const QString &selecting)
{
    popup.clear();
    int selected = -1;
    for (const PresetEditorRules::ThinkingItem &item :
         PresetEditorRules::thinkingItems(PresetEditorRules::supportedLevels(model, backend, models))) {
        if (item.value == selecting)
            selected = popup.count();
        popup.addItem(item.title, item.value);
    }
    popup.setCurrentIndex(selected);
}

} // namespace ModelPopups
