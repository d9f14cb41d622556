#include "settings/QuickTaskModelCatalog.h"

#include "backends/BackendProfiles.h"

namespace QuickTaskModelCatalog {

QList<QuickTaskPresetModelOption> presetModelOptions(QuickTaskCLIBackend backend, const QList<Model> &models)
{
    const BackendProfile &profile = BackendProfiles::of(backend);
    QList<QuickTaskPresetModelOption> options;
    options.reserve(models.size());
    for (const Model &model : models)
        options.append({model.identifier, profile.modelOptionTitle(model)});
    return options;
}

} // namespace QuickTaskModelCatalog
