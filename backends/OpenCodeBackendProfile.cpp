#include "backends/OpenCodeBackendProfile.h"

#include "backends/OpenCodeOutput.h"
#include "backends/QuickTaskInvocation.h"
#include "backends/TextLinesOutputParser.h"
#include "core/JSONCoding.h"
#include "core/TarvelError.h"

#include <QCollator>
#include <QDir>
#include <QJsonObject>
#include <QSet>

#include <algorithm>

namespace {

const QString kMedium = QStringLiteral("medium");

// Keys in plain code-unit order, so the walk does not depend on how the JSON library keeps them.
QStringList sortedKeys(const QJsonObject &object)
{
    QStringList keys = object.keys();
    std::sort(keys.begin(), keys.end());
    return keys;
}

QString joinedNonEmpty(const QStringList &parts)
{
    QStringList kept;
    for (const QString &part : parts) {
        if (!part.isEmpty())
            kept.append(part);
    }
    return kept.join(u' ');
}

QList<BackendModel> decodeConfig(const QByteArray &bytes)
{
    const QJsonObject config = JSONCoding::decodeObject(bytes);
    const std::optional<QString> configuredModel =
        JSONCoding::optionalString(config, QStringLiteral("model"));
    const QJsonObject providers = JSONCoding::requiredObject(config, QStringLiteral("provider"));

    QList<BackendModel> discovered;
    QSet<QString> seen;
    for (const QString &providerKey : sortedKeys(providers)) {
        const QJsonObject provider = JSONCoding::objectElement(providers.value(providerKey));
        const QString providerName =
            JSONCoding::optionalString(provider, QStringLiteral("name")).value_or(QString()).trimmed();
        const QJsonObject configuredModels = JSONCoding::requiredObject(provider, QStringLiteral("models"));
        for (const QString &modelKey : sortedKeys(configuredModels)) {
            const QJsonObject configured = JSONCoding::objectElement(configuredModels.value(modelKey));
            const QString modelName =
                JSONCoding::optionalString(configured, QStringLiteral("name")).value_or(QString()).trimmed();
            const QString identifier =
                OpenCodeBackendProfile::canonicalModelIdentifier(providerKey, modelKey);
            if (identifier.isEmpty() || seen.contains(identifier))
                continue;
            seen.insert(identifier);
            BackendModel model;
            model.identifier = identifier;
            model.displayName = modelName.isEmpty() ? identifier : modelName;
            model.description = joinedNonEmpty({providerName, modelName});
            model.defaultReasoningLevel = kMedium;
            model.supportedReasoningLevels = OpenCodeBackendProfile::reasoningVariants();
            discovered.append(model);
        }
    }

    const std::optional<QString> defaultKey =
        configuredModel ? std::optional<QString>(
                              OpenCodeBackendProfile::normalizedModelIdentifier(*configuredModel).toLower())
                        : std::nullopt;
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(discovered.begin(), discovered.end(),
                     [&](const BackendModel &left, const BackendModel &right) {
                         if (defaultKey) {
                             const bool leftIsDefault = left.identifier.toLower() == *defaultKey;
                             const bool rightIsDefault = right.identifier.toLower() == *defaultKey;
                             if (leftIsDefault != rightIsDefault)
                                 return leftIsDefault;
                         }
                         return collator.compare(left.identifier, right.identifier) < 0;
                     });
    return discovered;
}

} // namespace

std::optional<QString> OpenCodeBackendProfile::fallbackExecutablePath() const
{
    return QDir::homePath() + QStringLiteral("/.opencode/bin/opencode");
}

QStringList OpenCodeBackendProfile::quickTaskArguments(const QString &prompt, const QString &workingDirectory,
                                                       const QList<PromptAttachment> &attachments,
                                                       const ModelChoice &choice) const
{
    QStringList arguments{QStringLiteral("run"), QStringLiteral("--variant"), choice.reasoningEffort};
    if (!choice.model.isEmpty())
        arguments << QStringLiteral("--model") << modelArgument(choice.model);
    for (const PromptAttachment &attachment : attachments) {
        if (!attachment.isDirectory())
            arguments << QStringLiteral("--file") << attachment.path;
    }
    arguments << QStringLiteral("--dir") << workingDirectory << QStringLiteral("--")
              << QuickTaskInvocation::augmentedPrompt(prompt, attachments);
    return arguments;
}

QStringList OpenCodeBackendProfile::rewriteArguments(const QString &prompt, const QString &workingDirectory,
                                                     const ModelChoice &choice) const
{
    QStringList arguments{QStringLiteral("run"), QStringLiteral("--variant"), choice.reasoningEffort,
                          QStringLiteral("--dir"), workingDirectory};
    if (!choice.model.isEmpty())
        arguments << QStringLiteral("--model") << modelArgument(choice.model);
    arguments << QStringLiteral("--") << prompt;
    return arguments;
}

std::unique_ptr<BackendOutputParser> OpenCodeBackendProfile::makeOutputParser() const
{
    // Lines cleaned of terminal codes; the blank ones are dropped.
    return std::make_unique<TextLinesOutputParser>(&OpenCodeOutput::cleanOpencodeOutputLine);
}

QList<BackendModel> OpenCodeBackendProfile::availableModels() const
{
    QList<BackendModel> models{defaultModel()};
    const std::optional<QByteArray> config = readToolFile(configPath());
    if (!config)
        return models;
    try {
        models.append(decodeConfig(*config));
    } catch (const TarvelError &) {
        // A malformed config still leaves opencode's own default usable.
    }
    return models;
}

QString OpenCodeBackendProfile::modelOptionTitle(const BackendModel &model) const
{
    return model.identifier.isEmpty() ? QStringLiteral("default") : model.identifier.toLower();
}

QString OpenCodeBackendProfile::canonicalModelIdentifier(const QString &identifier) const
{
    return normalizedModelIdentifier(identifier);
}

bool OpenCodeBackendProfile::isConfigured(const ModelChoice &choice) const
{
    return reasoningVariants().contains(choice.reasoningEffort);
}

bool OpenCodeBackendProfile::isAvailable(const ModelChoice &choice, const QList<BackendModel> &) const
{
    return isConfigured(choice);
}

bool OpenCodeBackendProfile::acceptsReasoningEffort(const ModelChoice &, const QString &effort,
                                                    const QList<BackendModel> &) const
{
    return reasoningVariants().contains(effort);
}

ModelChoice OpenCodeBackendProfile::sanitized(const ModelChoice &choice, const QList<BackendModel> &) const
{
    return {normalizedModelIdentifier(choice.model), isConfigured(choice) ? choice.reasoningEffort : kMedium};
}

ModelChoice OpenCodeBackendProfile::defaultChoice(ModelRole role, const QList<BackendModel> &) const
{
    return {QString(), defaultReasoningEffort(role, defaultModel())};
}

QString OpenCodeBackendProfile::defaultReasoningEffort(ModelRole role, const BackendModel &) const
{
    return role == ModelRole::best ? QStringLiteral("max") : QStringLiteral("low");
}

ModelChoice OpenCodeBackendProfile::addedChoice() const
{
    return {QString(), kMedium};
}

ModelChoice OpenCodeBackendProfile::voiceDraft(const std::optional<QString> &modelIdentifier,
                                               const QList<BackendModel> &models) const
{
    ModelChoice choice = defaultChoice(ModelRole::voiceDraft, models);
    // A hand-configured model need not be in the config file; opencode resolves it itself.
    if (modelIdentifier)
        choice.model = normalizedModelIdentifier(*modelIdentifier);
    return choice;
}

const QStringList &OpenCodeBackendProfile::reasoningVariants()
{
    static const QStringList variants{QStringLiteral("minimal"), QStringLiteral("low"), kMedium,
                                      QStringLiteral("high"), QStringLiteral("max")};
    return variants;
}

BackendModel OpenCodeBackendProfile::defaultModel()
{
    return BackendModel{QString(), QStringLiteral("Default"),
                        QStringLiteral("Use the default OpenCode model from config."), kMedium,
                        reasoningVariants()};
}

QString OpenCodeBackendProfile::configPath()
{
    return QDir(toolFolder("XDG_CONFIG_HOME", QStringLiteral(".config")))
        .filePath(QStringLiteral("opencode/opencode.json"));
}

QString OpenCodeBackendProfile::canonicalModelIdentifier(const QString &provider, const QString &modelPath)
{
    const QString trimmedProvider = provider.trimmed();
    QString trimmedPath = modelPath.trimmed();
    if (trimmedProvider.isEmpty())
        return trimmedPath;
    if (trimmedPath.isEmpty())
        return trimmedProvider;
    if (!trimmedPath.startsWith(u'/'))
        trimmedPath.prepend(u'/');
    return trimmedProvider + u'/' + trimmedPath;
}

QString OpenCodeBackendProfile::normalizedModelIdentifier(const QString &text)
{
    const QString trimmed = text.trimmed();
    const qsizetype slash = trimmed.indexOf(u'/');
    if (slash < 0)
        return trimmed;
    return canonicalModelIdentifier(trimmed.left(slash), trimmed.mid(slash + 1));
}

QString OpenCodeBackendProfile::modelArgument(const QString &model)
{
    // Only the first doubled separator is ours; a model path may hold slashes of its own.
    const qsizetype separator = model.indexOf(QStringLiteral("//"));
    if (separator <= 0)
        return model;
    return model.left(separator) + u'/' + model.mid(separator + 2);
}
