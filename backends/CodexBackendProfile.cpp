#include "backends/CodexBackendProfile.h"

#include "backends/CodexExecEvent.h"
#include "backends/QuickTaskInvocation.h"
#include "core/JSONCoding.h"
#include "core/TarvelError.h"

#include <QDir>
#include <QJsonArray>
#include <QRegularExpression>

#include <algorithm>

namespace {

// Written by an early layout for "whatever codex considers best"; the best default replaces it.
const QString kLegacyLatestBestModel = QStringLiteral("latest_best");

class CodexOutputParser final : public BackendOutputParser {
public:
    BackendOutputChange parseLine(QByteArrayView line, QByteArray &transcript) override
    {
        // Decoding every line would make codex's bulk output (command results) the slowest
        // part of the pipeline; only events that can matter are decoded.
        if (CodexExecEvent::isSurelyIgnored(line))
            return {};
        const std::optional<CodexExecEvent> event = CodexExecEvent::decode(line);
        if (!event)
            return {};
        if (const std::optional<QString> threadID = event->startedThreadID()) {
            m_threadID = threadID;
            BackendOutput::appendLine(transcript, "Thread: ", threadID->toUtf8());
            return {.threadIDChanged = true};
        }
        if (const std::optional<QString> text = event->agentMessageText()) {
            m_lastAgentMessage = text;
            BackendOutput::appendLine(transcript, {}, text->toUtf8());
            return {.finalResponseChanged = true};
        }
        return {};
    }
    // The last agent message.
    std::optional<QString> finalResponse() const override { return m_lastAgentMessage; }
    std::optional<QString> threadID() const override { return m_threadID; }

private:
    std::optional<QString> m_threadID;
    std::optional<QString> m_lastAgentMessage;
};

QList<BackendModel> decodeModelCache(const QByteArray &bytes)
{
    const QJsonObject cache = JSONCoding::decodeObject(bytes);
    QList<BackendModel> models;
    for (const QJsonValue &entryValue : JSONCoding::requiredArray(cache, QStringLiteral("models"))) {
        const QJsonObject entry = JSONCoding::objectElement(entryValue);
        BackendModel model;
        model.identifier = JSONCoding::requiredString(entry, QStringLiteral("slug"));
        model.displayName = JSONCoding::requiredString(entry, QStringLiteral("display_name"));
        model.description = JSONCoding::requiredString(entry, QStringLiteral("description"));
        model.defaultReasoningLevel =
            JSONCoding::requiredString(entry, QStringLiteral("default_reasoning_level"));
        for (const QJsonValue &level :
             JSONCoding::requiredArray(entry, QStringLiteral("supported_reasoning_levels")))
            model.supportedReasoningLevels.append(
                JSONCoding::requiredString(JSONCoding::objectElement(level), QStringLiteral("effort")));
        const std::optional<QString> visibility =
            JSONCoding::optionalString(entry, QStringLiteral("visibility"));
        // Hidden, internal and retired models carry some other visibility; only "list" is for people.
        if (!visibility || *visibility == u"list")
            models.append(model);
    }
    return models;
}

std::optional<BackendModel> firstMatching(const QList<BackendModel> &models, const auto &predicate)
{
    const auto found = std::find_if(models.cbegin(), models.cend(), predicate);
    if (found == models.cend())
        return std::nullopt;
    return *found;
}

std::optional<BackendModel> bestModel(const QList<BackendModel> &models)
{
    if (models.isEmpty())
        return std::nullopt;
    // Small and "spark" models are quick but not the strongest choice.
    if (auto model = firstMatching(models, [](const BackendModel &candidate) {
            const QString identifier = candidate.identifier.toLower();
            return !identifier.contains(u"mini") && !identifier.contains(u"spark");
        })) {
        return model;
    }
    return models.constFirst();
}

std::optional<BackendModel> fastModel(const QList<BackendModel> &models)
{
    if (models.isEmpty())
        return std::nullopt;
    if (auto model = firstMatching(models, [](const BackendModel &candidate) {
            const QString description = candidate.description.toLower();
            return candidate.identifier.toLower().contains(u"spark") || description.contains(u"ultra-fast") ||
                   description.contains(u"fast");
        })) {
        return model;
    }
    if (auto model = firstMatching(models, [](const BackendModel &candidate) {
            const QString identifier = candidate.identifier.toLower();
            return identifier.contains(u"mini") || identifier.contains(u"spark");
        })) {
        return model;
    }
    return models.constFirst();
}

QStringList commonArguments(const QString &workingDirectory, const ModelChoice &choice)
{
    return {QStringLiteral("exec"),
            QStringLiteral("--json"),
            QStringLiteral("--skip-git-repo-check"),
            QStringLiteral("--model"),
            choice.model,
            QStringLiteral("-c"),
            QStringLiteral("model_reasoning_effort=\"%1\"").arg(choice.reasoningEffort),
            QStringLiteral("-C"),
            workingDirectory};
}

} // namespace

QString CodexBackendProfile::versionOutput(const QByteArray &standardOutput, const QByteArray &) const
{
    return QString::fromUtf8(standardOutput).trimmed();
}

bool CodexBackendProfile::isVersionAnswer(const QString &output) const
{
    static const QRegularExpression version(QStringLiteral("^codex-cli\\s+\\S+"));
    return version.match(output).hasMatch();
}

QStringList CodexBackendProfile::quickTaskArguments(const QString &prompt, const QString &workingDirectory,
                                                    const QList<PromptAttachment> &attachments,
                                                    const ModelChoice &choice) const
{
    QStringList arguments = commonArguments(workingDirectory, choice);
    for (const QString &directory :
         QuickTaskInvocation::attachmentDirectoryPaths(attachments, workingDirectory))
        arguments << QStringLiteral("--add-dir") << directory;
    for (const PromptAttachment &attachment : attachments) {
        if (attachment.isImage())
            arguments << QStringLiteral("--image") << attachment.path;
    }
    arguments << QStringLiteral("--") << QuickTaskInvocation::augmentedPrompt(prompt, attachments);
    return arguments;
}

QStringList CodexBackendProfile::rewriteArguments(const QString &prompt, const QString &workingDirectory,
                                                  const ModelChoice &choice) const
{
    return commonArguments(workingDirectory, choice) << QStringLiteral("--") << prompt;
}

std::unique_ptr<BackendOutputParser> CodexBackendProfile::makeOutputParser() const
{
    return std::make_unique<CodexOutputParser>();
}

// codex moves its folder with CODEX_HOME.
QString CodexBackendProfile::modelCachePath()
{
    return QDir(toolFolder("CODEX_HOME", QStringLiteral(".codex")))
        .filePath(QStringLiteral("models_cache.json"));
}

QList<BackendModel> CodexBackendProfile::availableModels() const
{
    const std::optional<QByteArray> cache = readToolFile(modelCachePath());
    if (!cache)
        return {};
    try {
        return decodeModelCache(*cache);
    } catch (const TarvelError &) {
        // The cache belongs to codex and may be half-written or from another version.
        return {};
    }
}

ModelChoice CodexBackendProfile::sanitized(const ModelChoice &choice, const QList<BackendModel> &models) const
{
    if (choice.model == kLegacyLatestBestModel)
        return defaultChoice(ModelRole::best, models);
    return CatalogBackendProfile::sanitized(choice, models);
}

QString CodexBackendProfile::defaultReasoningEffort(ModelRole role, const BackendModel &model) const
{
    switch (role) {
    case ModelRole::best:
        return model.highestSupportedReasoningEffort();
    case ModelRole::fast:
        return model.resolvedDefaultReasoningEffort();
    case ModelRole::voiceDraft:
        return model.lowestSupportedReasoningEffort();
    }
    Q_UNREACHABLE();
}

std::optional<BackendModel> CodexBackendProfile::defaultModel(ModelRole role,
                                                              const QList<BackendModel> &models) const
{
    return role == ModelRole::fast ? fastModel(models) : bestModel(models);
}
