#pragma once

#include "backends/BackendModel.h"
#include "backends/QuickTaskCLIBackend.h"

#include <QList>
#include <QString>

class QComboBox;

// The model and thinking pop-ups of the preset table and of voice drafting: filled from the
// backend's models with the current choice selected (none selected when it is not offered).
namespace ModelPopups {

void fillModels(QComboBox &popup, QuickTaskCLIBackend backend, const QList<BackendModel> &models,
                const QString &selecting);
void fillThinking(QComboBox &popup, QuickTaskCLIBackend backend, const QList<BackendModel> &models,
                  const QString &model, const QString &selecting);

} // namespace ModelPopups
