#pragma once

#include "backends/BackendProfile.h"
#include "fuzz/FuzzSupport.h"

// What the application does with a backend's catalog as soon as it is read: menus, defaults for
// new presets and the voice draft, and making stored choices fit. Making a choice fit twice must
// change nothing more, or presets would drift every time the settings are read.
namespace Fuzz {

inline void requireSettled(const BackendProfile &profile, const ModelChoice &choice,
                           const QList<BackendModel> &models)
{
    const ModelChoice fitted = profile.sanitized(choice, models);
    require(profile.sanitized(fitted, models) == fitted, "a fitted model choice stays as it is");
}

inline void exerciseModelChoices(const BackendProfile &profile)
{
    const QList<BackendModel> models = profile.availableModels();
    for (const ModelRole role : {ModelRole::best, ModelRole::fast, ModelRole::voiceDraft})
        requireSettled(profile, profile.defaultChoice(role, models), models);
    for (const BackendModel &model : models) {
        profile.modelOptionTitle(model);
        for (const ModelRole role : {ModelRole::best, ModelRole::fast, ModelRole::voiceDraft}) {
            const ModelChoice choice{model.identifier, profile.defaultReasoningEffort(role, model)};
            profile.acceptsReasoningEffort(choice, choice.reasoningEffort, models);
            requireSettled(profile, choice, models);
        }
        for (const QString &effort : model.supportedReasoningLevels)
            requireSettled(profile, ModelChoice{model.identifier, effort}, models);
        requireSettled(profile, profile.voiceDraft(model.identifier, models), models);
    }
}

} // namespace Fuzz
