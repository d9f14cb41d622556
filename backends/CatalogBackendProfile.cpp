#include "backends/CatalogBackendProfile.h"

bool CatalogBackendProfile::isConfigured(const ModelChoice &choice) const
{
    return !choice.model.isEmpty() && !choice.reasoningEffort.isEmpty();
}

bool CatalogBackendProfile::isAvailable(const ModelChoice &choice, const QList<BackendModel> &models) const
{
    if (models.isEmpty())
        return isConfigured(choice);
    return acceptsReasoningEffort(choice, choice.reasoningEffort, models);
}

bool CatalogBackendProfile::acceptsReasoningEffort(const ModelChoice &choice, const QString &effort,
                                                   const QList<BackendModel> &models) const
{
    const std::optional<BackendModel> resolved = resolvedModel(choice, models);
    return resolved && resolved->supports(effort);
}

ModelChoice CatalogBackendProfile::sanitized(const ModelChoice &choice,
                                             const QList<BackendModel> &models) const
{
    if (models.isEmpty()) {
        // Nothing to check against yet: keep a complete choice rather than lose the user's pick.
        return isConfigured(choice) ? choice : ModelChoice();
    }
    const std::optional<BackendModel> resolved = resolvedModel(choice, models);
    if (!resolved)
        return {};
    return {resolved->identifier, resolved->supports(choice.reasoningEffort)
                                      ? choice.reasoningEffort
                                      : resolved->resolvedDefaultReasoningEffort()};
}

ModelChoice CatalogBackendProfile::defaultChoice(ModelRole role, const QList<BackendModel> &models) const
{
    const std::optional<BackendModel> model = defaultModel(role, models);
    if (!model)
        return {};
    return {model->identifier, defaultReasoningEffort(role, *model)};
}

ModelChoice CatalogBackendProfile::voiceDraft(const std::optional<QString> &modelIdentifier,
                                              const QList<BackendModel> &models) const
{
    const std::optional<BackendModel> model =
        modelIdentifier ? resolvedModel({*modelIdentifier, QString()}, models) : std::nullopt;
    if (!model)
        return defaultChoice(ModelRole::voiceDraft, models);
    return {model->identifier, defaultReasoningEffort(ModelRole::voiceDraft, *model)};
}
