#pragma once

#include "backends/BackendModel.h"
#include "backends/QuickTaskCLIBackend.h"

#include <QList>
#include <QString>

// One row of a model pop-up menu.
struct QuickTaskPresetModelOption {
    QString identifier;
    QString title;

    friend bool operator==(const QuickTaskPresetModelOption &, const QuickTaskPresetModelOption &) = default;
};

// The models the settings offer. Nothing is kept between calls: every query reads the backend's
// own files again, so a model the user adds with their tool shows up the next time a menu is built.
namespace QuickTaskModelCatalog {

using Model = BackendModel;

QList<QuickTaskPresetModelOption> presetModelOptions(QuickTaskCLIBackend backend, const QList<Model> &models);

} // namespace QuickTaskModelCatalog
