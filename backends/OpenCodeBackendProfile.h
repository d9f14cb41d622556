#pragma once

#include "backends/BackendProfile.h"

// opencode: `opencode run`, which writes for a terminal; its models come from opencode.json, and
// any model it resolves itself is accepted. Model identifiers are kept in the canonical form
// provider//model so that they compare equal however they were written. Takes no folders.
class OpenCodeBackendProfile final : public BackendProfile {
public:
    QuickTaskCLIBackend backend() const override { return QuickTaskCLIBackend::opencode; }
    QString rawValue() const override { return QStringLiteral("opencode"); }
    QString displayTitle() const override { return QStringLiteral("OpenCode"); }
    QString longTitle() const override { return QStringLiteral("OpenCode"); }

    QString overrideVariable() const override { return QStringLiteral("OPENCODE_BIN_PATH"); }
    // Where opencode's own installer puts it.
    std::optional<QString> fallbackExecutablePath() const override;
    QStringList versionArguments() const override { return {QStringLiteral("--version")}; }

    bool acceptsFolders() const override { return false; }

    QStringList quickTaskArguments(const QString &prompt, const QString &workingDirectory,
                                   const QList<PromptAttachment> &attachments,
                                   const ModelChoice &choice) const override;
    QStringList rewriteArguments(const QString &prompt, const QString &workingDirectory,
                                 const ModelChoice &choice) const override;
    std::unique_ptr<BackendOutputParser> makeOutputParser() const override;

    // The default entry, then the models of opencode.json.
    QList<BackendModel> availableModels() const override;
    std::optional<QString> modelSourcePath() const override { return configPath(); }
    QString modelOptionTitle(const BackendModel &model) const override;
    QString canonicalModelIdentifier(const QString &identifier) const override;
    bool checksModelsAgainstCatalog() const override { return false; }

    // The effort is one of opencode's variants; any model will do.
    bool isConfigured(const ModelChoice &choice) const override;
    bool isAvailable(const ModelChoice &choice, const QList<BackendModel> &models) const override;
    bool acceptsReasoningEffort(const ModelChoice &choice, const QString &effort,
                                const QList<BackendModel> &models) const override;
    ModelChoice sanitized(const ModelChoice &choice, const QList<BackendModel> &models) const override;
    ModelChoice defaultChoice(ModelRole role, const QList<BackendModel> &models) const override;
    QString defaultReasoningEffort(ModelRole role, const BackendModel &model) const override;
    ModelChoice addedChoice() const override;
    ModelChoice voiceDraft(const std::optional<QString> &modelIdentifier,
                           const QList<BackendModel> &models) const override;

    // "minimal", "low", "medium", "high", "max".
    static const QStringList &reasoningVariants();
    // Stands for whatever model opencode's own configuration picks.
    static BackendModel defaultModel();
    // opencode.json in opencode's configuration folder (it follows XDG_CONFIG_HOME).
    static QString configPath();
    // provider + "//" + model: the doubled separator is the canonical form and is kept on purpose.
    static QString canonicalModelIdentifier(const QString &provider, const QString &modelPath);
    // "anthropic/claude-x" and "anthropic//claude-x" both become "anthropic//claude-x".
    static QString normalizedModelIdentifier(const QString &text);
    // The model as --model takes it: opencode splits at the first "/" and knows no model "/model",
    // so the separator goes back to one slash: anthropic//claude-x becomes anthropic/claude-x.
    static QString modelArgument(const QString &model);
};
