#include "backends/ClaudeBackendProfile.h"

#include "backends/QuickTaskInvocation.h"
#include "backends/TextLinesOutputParser.h"

namespace {

QStringList commonArguments(const ModelChoice &choice)
{
    return {QStringLiteral("-p"),
            QStringLiteral("--output-format"),
            QStringLiteral("text"),
            QStringLiteral("--no-session-persistence"),
            QStringLiteral("--dangerously-skip-permissions"),
            QStringLiteral("--model"),
            choice.model,
            QStringLiteral("--effort"),
            choice.reasoningEffort};
}

} // namespace

QStringList ClaudeBackendProfile::quickTaskArguments(const QString &prompt, const QString &workingDirectory,
                                                     const QList<PromptAttachment> &attachments,
                                                     const ModelChoice &choice) const
{
    QStringList arguments = commonArguments(choice);
    for (const QString &directory :
         QuickTaskInvocation::attachmentDirectoryPaths(attachments, workingDirectory))
        arguments << QStringLiteral("--add-dir") << directory;
    arguments << QStringLiteral("--") << QuickTaskInvocation::augmentedPrompt(prompt, attachments);
    return arguments;
}

QStringList ClaudeBackendProfile::rewriteArguments(const QString &prompt, const QString &,
                                                   const ModelChoice &choice) const
{
    return commonArguments(choice) << QStringLiteral("--") << prompt;
}

std::unique_ptr<BackendOutputParser> ClaudeBackendProfile::makeOutputParser() const
{
    return std::make_unique<TextLinesOutputParser>();
}

QList<BackendModel> ClaudeBackendProfile::availableModels() const
{
    const QString medium = QStringLiteral("medium");
    return {
        BackendModel{QStringLiteral("sonnet"), QStringLiteral("Sonnet"),
                     QStringLiteral("Balanced Claude model alias for code work."), medium,
                     QStringList{QStringLiteral("low"), medium, QStringLiteral("high")}},
        BackendModel{
            QStringLiteral("opus"), QStringLiteral("Opus"),
            QStringLiteral("Highest-capability Claude model alias for deeper reasoning."), medium,
            QStringList{QStringLiteral("low"), medium, QStringLiteral("high"), QStringLiteral("max")}},
    };
}

QString ClaudeBackendProfile::defaultReasoningEffort(ModelRole role, const BackendModel &model) const
{
    if (role == ModelRole::best)
        return model.supports(QStringLiteral("high")) ? QStringLiteral("high")
                                                      : model.highestSupportedReasoningEffort();
    return model.supports(QStringLiteral("low")) ? QStringLiteral("low")
                                                 : model.lowestSupportedReasoningEffort();
}

std::optional<BackendModel> ClaudeBackendProfile::defaultModel(ModelRole,
                                                               const QList<BackendModel> &models) const
{
    if (models.isEmpty())
        return std::nullopt;
    for (const BackendModel &model : models) {
        if (model.identifier == u"sonnet")
            return model;
    }
    return models.constFirst();
}
