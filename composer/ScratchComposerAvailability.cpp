#include "composer/ScratchComposerAvailability.h"

#include "backends/BackendProfiles.h"

ScratchComposerAvailability ScratchComposerAvailability::checking(QuickTaskCLIBackend backend)
{
    return {State::checking, QString(),
            QStringLiteral("Checking ") + BackendProfiles::of(backend).longTitle() + QStringLiteral("\u2026"),
            QStringLiteral("Verifying that `") + BackendProfiles::of(backend).versionCommandDisplay() +
                QStringLiteral("` returns a usable version string.")};
}

ScratchComposerAvailability ScratchComposerAvailability::ready(const QString &version)
{
    return {State::ready, version, QString(), QString()};
}

ScratchComposerAvailability ScratchComposerAvailability::unavailable(const QString &title,
                                                                     const QString &detail)
{
    return {State::unavailable, QString(), title, detail};
}

QuickTaskCLIBackend
ScratchComposerAvailability::resolvedBackend(QuickTaskCLIBackend chosen,
                                             const QuickTaskCLIInstallationAvailabilities &availabilities)
{
    if (availabilities.value(chosen).isAvailable())
        return chosen;
    for (const BackendProfile *profile : BackendProfiles::all()) {
        if (availabilities.value(profile->backend()).isAvailable())
            return profile->backend();
    }
    return chosen;
}

bool ScratchComposerAvailability::hasUsableScratchPreset(const QuickTaskPresetSettings &settings,
                                                         const QList<QuickTaskModelCatalog::Model> &models,
                                                         QuickTaskCLIBackend backend)
{
    for (const QuickTaskPreset &preset : settings.presets) {
        if (preset.isConfigured(backend) && preset.isAvailable(models, backend))
            return true;
    }
    return false;
}

ScratchComposerAvailability ScratchComposerAvailability::resolved(
    QuickTaskCLIBackend backend, const QuickTaskCLIInstallationAvailability &installation,
    const QuickTaskPresetSettings &settings, const QList<QuickTaskModelCatalog::Model> &models)
{
    const BackendProfile &profile = BackendProfiles::of(backend);
    if (!installation.isAvailable())
        return unavailable(profile.longTitle() + QStringLiteral(" is unavailable."), installation.message());
    if (hasUsableScratchPreset(settings, models, backend))
        return ready(installation.version());
    if (profile.needsModelsForQuickTasks() && models.isEmpty()) {
        return unavailable(
            QStringLiteral("%1 is installed, but quick tasks are not ready yet.").arg(profile.displayTitle()),
            QStringLiteral("Run `%1` once in Terminal so Tarvel can discover models, or open "
                           "Preferences and keep a configured preset.")
                .arg(profile.rawValue()));
    }
    return unavailable(QStringLiteral("No quick-task preset is available."),
                       QStringLiteral("Open Preferences and choose a valid ") + profile.displayTitle() +
                           QStringLiteral(" model before submitting a quick task."));
}
