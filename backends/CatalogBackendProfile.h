#pragma once

#include "backends/BackendProfile.h"

// The model-choice rules of a backend whose models all come from its catalog (codex, claude):
// a choice names a listed model and an effort that model takes. With no catalog at all yet
// (codex has not cached one) a complete choice is given the benefit of the doubt.
class CatalogBackendProfile : public BackendProfile {
public:
    bool isConfigured(const ModelChoice &choice) const override;
    bool isAvailable(const ModelChoice &choice, const QList<BackendModel> &models) const override;
    bool acceptsReasoningEffort(const ModelChoice &choice, const QString &effort,
                                const QList<BackendModel> &models) const override;
    ModelChoice sanitized(const ModelChoice &choice, const QList<BackendModel> &models) const override;
    ModelChoice defaultChoice(ModelRole role, const QList<BackendModel> &models) const override;
    ModelChoice voiceDraft(const std::optional<QString> &modelIdentifier,
                           const QList<BackendModel> &models) const override;

protected:
    // The model a new choice for role starts with; nullopt when there are no models.
    virtual std::optional<BackendModel> defaultModel(ModelRole role,
                                                     const QList<BackendModel> &models) const = 0;
};
