#pragma once

#include "backends/QuickTaskCLIBackend.h"
#include "quicktasks/QuickTaskCLIInstallationAvailability.h"
#include "settings/QuickTaskModelCatalog.h"
#include "settings/QuickTaskPresetSettings.h"

#include <QString>

// Whether a scratch composer can submit a quick task now, and what its overlay says when not.
struct ScratchComposerAvailability {
    enum class State { checking, ready, unavailable };

    State state = State::checking;
    QString version;
    QString title;
    QString detail;

    static ScratchComposerAvailability checking(QuickTaskCLIBackend backend);
    static ScratchComposerAvailability ready(const QString &version);
    static ScratchComposerAvailability unavailable(const QString &title, const QString &detail);

    bool isReady() const { return state == State::ready; }

    // The backend to use: the chosen one when it is installed, else the first installed
    // one, else the chosen one after all.
    static QuickTaskCLIBackend resolvedBackend(QuickTaskCLIBackend chosen,
                                               const QuickTaskCLIInstallationAvailabilities &availabilities);
    static bool hasUsableScratchPreset(const QuickTaskPresetSettings &settings,
                                       const QList<QuickTaskModelCatalog::Model> &models,
                                       QuickTaskCLIBackend backend);
    static ScratchComposerAvailability resolved(QuickTaskCLIBackend backend,
                                                const QuickTaskCLIInstallationAvailability &installation,
                                                const QuickTaskPresetSettings &settings,
                                                const QList<QuickTaskModelCatalog::Model> &models);

    friend bool operator==(const ScratchComposerAvailability &,
                           const ScratchComposerAvailability &) = default;
};
