#include "composer/ScratchComposerAvailability.h"

using namespace QuickTaskCLIBackends;

ScratchComposerAvailability ScratchComposerAvailability::checking(QuickTaskCLIBackend backend)
{
    return {State::checking, QString(),
            QStringLiteral("Checking ") + longTitle(backend) + QStringLiteral("\u2026"),
            QStringLiteral("Verifying that `") + versionCommandDisplay(backend) +
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
    for (QuickTaskCLIBackend backend : allCases()) {
        if (availabilities.value(backend).isAvailable())
            return backend;
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
    if (!installation.isAvailable())
        return unavailable(longTitle(backend) + QStringLiteral(" is unavailable."), installation.message());
    if (hasUsableScratchPreset(settings, models, backend))
        return ready(installation.version());
    if (backend == QuickTaskCLIBackend::codex && models.isEmpty()) {
        return unavailable(
            QStringLiteral("Codex is installed, but quick tasks are not ready yet."),
            QStringLiteral("Run `codex` once in Terminal so Tarvel can discover models, or open "
                           "Preferences and keep a configured preset."));
    }
    return unavailable(QStringLiteral("No quick-task preset is available."),
                       QStringLiteral("Open Preferences and choose a valid ") + displayTitle(backend) +
                           QStringLiteral(" model before submitting a quick task."));
}
