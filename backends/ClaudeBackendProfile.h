#pragma once

#include "backends/CatalogBackendProfile.h"

// claude: `claude -p` with plain text output; its models are the two aliases it always knows.
class ClaudeBackendProfile final : public CatalogBackendProfile {
public:
    QuickTaskCLIBackend backend() const override { return QuickTaskCLIBackend::claude; }
    QString rawValue() const override { return QStringLiteral("claude"); }
    QString displayTitle() const override { return QStringLiteral("Claude"); }
    QString longTitle() const override { return QStringLiteral("Claude CLI"); }

    QString overrideVariable() const override { return QStringLiteral("CLAUDE_BIN_PATH"); }
    QStringList versionArguments() const override { return {QStringLiteral("--version")}; }

    bool acceptsFolders() const override { return true; }

    QStringList quickTaskArguments(const QString &prompt, const QString &workingDirectory,
                                   const QList<PromptAttachment> &attachments,
                                   const ModelChoice &choice) const override;
    QStringList rewriteArguments(const QString &prompt, const QString &workingDirectory,
                                 const ModelChoice &choice) const override;
    std::unique_ptr<BackendOutputParser> makeOutputParser() const override;

    QList<BackendModel> availableModels() const override;
    QString defaultReasoningEffort(ModelRole role, const BackendModel &model) const override;

protected:
    std::optional<BackendModel> defaultModel(ModelRole role,
                                             const QList<BackendModel> &models) const override;
};
