#pragma once

#include "backends/CatalogBackendProfile.h"

// codex: `codex exec --json`, whose output is one JSON event per line; its models come from the
// cache codex keeps under CODEX_HOME (default ~/.codex).
class CodexBackendProfile final : public CatalogBackendProfile {
public:
    QuickTaskCLIBackend backend() const override { return QuickTaskCLIBackend::codex; }
    QString rawValue() const override { return QStringLiteral("codex"); }
    QString displayTitle() const override { return QStringLiteral("Codex"); }
    QString longTitle() const override { return QStringLiteral("Codex CLI"); }

    QString overrideVariable() const override { return QStringLiteral("CODEX_BIN_PATH"); }
    QStringList versionArguments() const override { return {QStringLiteral("-V")}; }
    // codex prints its version on standard output only.
    QString versionOutput(const QByteArray &standardOutput, const QByteArray &standardError) const override;
    bool isVersionAnswer(const QString &output) const override;

    bool acceptsFolders() const override { return true; }

    QStringList quickTaskArguments(const QString &prompt, const QString &workingDirectory,
                                   const QList<PromptAttachment> &attachments,
                                   const ModelChoice &choice) const override;
    QStringList rewriteArguments(const QString &prompt, const QString &workingDirectory,
                                 const ModelChoice &choice) const override;
    std::unique_ptr<BackendOutputParser> makeOutputParser() const override;

    QList<BackendModel> availableModels() const override;
    std::optional<QString> modelSourcePath() const override { return modelCachePath(); }
    bool needsModelsForQuickTasks() const override { return true; }

    ModelChoice sanitized(const ModelChoice &choice, const QList<BackendModel> &models) const override;
    QString defaultReasoningEffort(ModelRole role, const BackendModel &model) const override;

    // models_cache.json in codex's folder.
    static QString modelCachePath();

protected:
    std::optional<BackendModel> defaultModel(ModelRole role,
                                             const QList<BackendModel> &models) const override;
};
