#include "settings/QuickTaskModelCatalog.h"

#include "core/DataFile.h"
#include "core/JSONCoding.h"

#include <QCollator>
#include <QDir>
#include <QJsonArray>
#include <QJsonObject>
#include <QSet>

#include <algorithm>

namespace QuickTaskModelCatalog {
namespace {

const QString kMedium = QStringLiteral("medium");

QJsonArray requiredArray(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = object.value(key);
    if (!value.isArray())
        throw DecodingError(QStringLiteral("The value of \u201c%1\u201d is not a list.").arg(key));
    return value.toArray();
}

QJsonObject requiredObject(const QJsonObject &object, const QString &key)
{
    const QJsonValue value = object.value(key);
    if (!value.isObject())
        throw DecodingError(QStringLiteral("The value of \u201c%1\u201d is not an object.").arg(key));
    return value.toObject();
}

QJsonObject objectElement(const QJsonValue &value)
{
    if (!value.isObject())
        throw DecodingError(QStringLiteral("An entry is not an object."));
    return value.toObject();
}

// Keys in plain code-unit order, so the walk does not depend on how the JSON library keeps them.
QStringList sortedKeys(const QJsonObject &object)
{
    QStringList keys = object.keys();
    std::sort(keys.begin(), keys.end());
    return keys;
}

std::optional<QByteArray> readFile(const QString &path)
{
    try {
        return DataFile::read(path);
    } catch (const TarvelError &) {
        return std::nullopt;
    }
}

QList<Model> decodeCodexModelCache(const QByteArray &bytes)
{
    const QJsonObject cache = JSONCoding::decodeObject(bytes);
    QList<Model> models;
    for (const QJsonValue &entryValue : requiredArray(cache, QStringLiteral("models"))) {
        const QJsonObject entry = objectElement(entryValue);
        Model model;
        model.identifier = JSONCoding::requiredString(entry, QStringLiteral("slug"));
        model.displayName = JSONCoding::requiredString(entry, QStringLiteral("display_name"));
        model.description = JSONCoding::requiredString(entry, QStringLiteral("description"));
        model.defaultReasoningLevel =
            JSONCoding::requiredString(entry, QStringLiteral("default_reasoning_level"));
        for (const QJsonValue &level : requiredArray(entry, QStringLiteral("supported_reasoning_levels")))
            model.supportedReasoningLevels.append(
                JSONCoding::requiredString(objectElement(level), QStringLiteral("effort")));
        const std::optional<QString> visibility =
            JSONCoding::optionalString(entry, QStringLiteral("visibility"));
        // Hidden, internal and retired models carry some other visibility; only "list" is for people.
        if (!visibility || *visibility == u"list")
            models.append(model);
    }
    return models;
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

QList<Model> decodeOpenCodeConfig(const QByteArray &bytes)
{
    const QJsonObject config = JSONCoding::decodeObject(bytes);
    const std::optional<QString> configuredModel =
        JSONCoding::optionalString(config, QStringLiteral("model"));
    const QJsonObject providers = requiredObject(config, QStringLiteral("provider"));

    QList<Model> discovered;
    QSet<QString> seen;
    for (const QString &providerKey : sortedKeys(providers)) {
        const QJsonObject provider = objectElement(providers.value(providerKey));
        const QString providerName =
            JSONCoding::optionalString(provider, QStringLiteral("name")).value_or(QString()).trimmed();
        const QJsonObject configuredModels = requiredObject(provider, QStringLiteral("models"));
        for (const QString &modelKey : sortedKeys(configuredModels)) {
            const QJsonObject configured = objectElement(configuredModels.value(modelKey));
            const QString modelName =
                JSONCoding::optionalString(configured, QStringLiteral("name")).value_or(QString()).trimmed();
            const QString identifier = canonicalOpenCodeModelIdentifier(providerKey, modelKey);
            if (identifier.isEmpty() || seen.contains(identifier))
                continue;
            seen.insert(identifier);
            Model model;
            model.identifier = identifier;
            model.displayName = modelName.isEmpty() ? identifier : modelName;
            model.description = joinedNonEmpty({providerName, modelName});
            model.defaultReasoningLevel = kMedium;
            model.supportedReasoningLevels = openCodeReasoningVariants();
            discovered.append(model);
        }
    }

    const std::optional<QString> defaultKey =
        configuredModel
            ? std::optional<QString>(normalizedOpenCodeModelIdentifier(*configuredModel).toLower())
            : std::nullopt;
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(discovered.begin(), discovered.end(), [&](const Model &left, const Model &right) {
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

std::optional<Model> firstMatching(const QList<Model> &models, const auto &predicate)
{
    const auto found = std::find_if(models.cbegin(), models.cend(), predicate);
    if (found == models.cend())
        return std::nullopt;
    return *found;
}

std::optional<Model> codexBestModel(const QList<Model> &models)
{
    if (models.isEmpty())
        return std::nullopt;
    // Small and "spark" models are quick but not the strongest choice.
    if (auto model = firstMatching(models, [](const Model &candidate) {
            const QString identifier = candidate.identifier.toLower();
            return !identifier.contains(u"mini") && !identifier.contains(u"spark");
        })) {
        return model;
    }
    return models.constFirst();
}

std::optional<Model> codexFastModel(const QList<Model> &models)
{
    if (models.isEmpty())
        return std::nullopt;
    if (auto model = firstMatching(models, [](const Model &candidate) {
            const QString description = candidate.description.toLower();
            return candidate.identifier.toLower().contains(u"spark") || description.contains(u"ultra-fast") ||
                   description.contains(u"fast");
        })) {
        return model;
    }
    if (auto model = firstMatching(models, [](const Model &candidate) {
            const QString identifier = candidate.identifier.toLower();
            return identifier.contains(u"mini") || identifier.contains(u"spark");
        })) {
        return model;
    }
    return models.constFirst();
}

std::optional<Model> claudeDefaultModel(const QList<Model> &models)
{
    if (models.isEmpty())
        return std::nullopt;
    if (auto model =
            firstMatching(models, [](const Model &candidate) { return candidate.identifier == u"sonnet"; }))
        return model;
    return models.constFirst();
}

} // namespace

QString Model::resolvedDefaultReasoningEffort() const
{
    if (supportedReasoningLevels.contains(defaultReasoningLevel))
        return defaultReasoningLevel;
    if (!supportedReasoningLevels.isEmpty())
        return supportedReasoningLevels.constFirst();
    return kMedium;
}

QString Model::highestSupportedReasoningEffort() const
{
    return preferredReasoningEffort(descendingReasoningEfforts());
}

QString Model::lowestSupportedReasoningEffort() const
{
    return preferredReasoningEffort(ascendingReasoningEfforts());
}

QString Model::preferredReasoningEffort(const QStringList &order) const
{
    for (const QString &effort : order) {
        if (supportedReasoningLevels.contains(effort))
            return effort;
    }
    return resolvedDefaultReasoningEffort();
}

const QStringList &reasoningEffortVocabulary()
{
    static const QStringList efforts{QStringLiteral("minimal"), QStringLiteral("low"),
                                     QStringLiteral("medium"),  QStringLiteral("high"),
                                     QStringLiteral("xhigh"),   QStringLiteral("max")};
    return efforts;
}

const QStringList &openCodeReasoningVariants()
{
    static const QStringList variants{QStringLiteral("minimal"), QStringLiteral("low"),
                                      QStringLiteral("medium"), QStringLiteral("high"),
                                      QStringLiteral("max")};
    return variants;
}

const QStringList &descendingReasoningEfforts()
{
    static const QStringList efforts{QStringLiteral("max"),  QStringLiteral("xhigh"),
                                     QStringLiteral("high"), QStringLiteral("medium"),
                                     QStringLiteral("low"),  QStringLiteral("minimal")};
    return efforts;
}

const QStringList &ascendingReasoningEfforts()
{
    return reasoningEffortVocabulary();
}

QList<Model> availableModels(QuickTaskCLIBackend backend)
{
    switch (backend) {
    case QuickTaskCLIBackend::codex:
        return loadCodexAvailableModels();
    case QuickTaskCLIBackend::claude:
        return claudeAvailableModels();
    case QuickTaskCLIBackend::opencode:
        return loadOpenCodeAvailableModels();
    }
    Q_UNREACHABLE();
}

// The files are read where the tools themselves keep them: codex moves its folder with
// CODEX_HOME, and opencode follows the XDG configuration folder.
QString codexModelCachePath()
{
    const QString codexHome = qEnvironmentVariable("CODEX_HOME");
    const QString folder = QDir::isAbsolutePath(codexHome)
                               ? codexHome
                               : QDir(QDir::homePath()).filePath(QStringLiteral(".codex"));
    return QDir(folder).filePath(QStringLiteral("models_cache.json"));
}

QString openCodeConfigPath()
{
    const QString configHome = qEnvironmentVariable("XDG_CONFIG_HOME");
    const QString folder = QDir::isAbsolutePath(configHome)
                               ? configHome
                               : QDir(QDir::homePath()).filePath(QStringLiteral(".config"));
    return QDir(folder).filePath(QStringLiteral("opencode/opencode.json"));
}

QList<Model> loadCodexAvailableModels()
{
    const std::optional<QByteArray> bytes = readFile(codexModelCachePath());
    if (!bytes)
        return {};
    try {
        return decodeCodexModelCache(*bytes);
    } catch (const TarvelError &) {
        // The cache belongs to codex and may be half-written or from another version: no models then.
        return {};
    }
}

QList<Model> loadOpenCodeAvailableModels()
{
    QList<Model> models{openCodeDefaultModel()};
    const std::optional<QByteArray> bytes = readFile(openCodeConfigPath());
    if (!bytes)
        return models;
    try {
        models.append(decodeOpenCodeConfig(*bytes));
    } catch (const TarvelError &) {
        // An unreadable config still leaves opencode's own default usable.
    }
    return models;
}

const QList<Model> &claudeAvailableModels()
{
    static const QList<Model> models{
        Model{QStringLiteral("sonnet"), QStringLiteral("Sonnet"),
              QStringLiteral("Balanced Claude model alias for code work."), kMedium,
              QStringList{QStringLiteral("low"), kMedium, QStringLiteral("high")}},
        Model{QStringLiteral("opus"), QStringLiteral("Opus"),
              QStringLiteral("Highest-capability Claude model alias for deeper reasoning."), kMedium,
              QStringList{QStringLiteral("low"), kMedium, QStringLiteral("high"), QStringLiteral("max")}},
    };
    return models;
}

Model openCodeDefaultModel()
{
    return Model{QString(), QStringLiteral("Default"),
                 QStringLiteral("Use the default OpenCode model from config."), kMedium,
                 openCodeReasoningVariants()};
}

QString canonicalOpenCodeModelIdentifier(const QString &provider, const QString &modelPath)
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

QString normalizedOpenCodeModelIdentifier(const QString &text)
{
    const QString trimmed = text.trimmed();
    const qsizetype slash = trimmed.indexOf(u'/');
    if (slash < 0)
        return trimmed;
    return canonicalOpenCodeModelIdentifier(trimmed.left(slash), trimmed.mid(slash + 1));
}

std::optional<Model> defaultBestModel(const QList<Model> &models, QuickTaskCLIBackend backend)
{
    switch (backend) {
    case QuickTaskCLIBackend::codex:
        return codexBestModel(models);
    case QuickTaskCLIBackend::claude:
        return claudeDefaultModel(models);
    case QuickTaskCLIBackend::opencode:
        return std::nullopt;
    }
    Q_UNREACHABLE();
}

std::optional<Model> defaultFastModel(const QList<Model> &models, QuickTaskCLIBackend backend)
{
    switch (backend) {
    case QuickTaskCLIBackend::codex:
        return codexFastModel(models);
    case QuickTaskCLIBackend::claude:
        return claudeDefaultModel(models);
    case QuickTaskCLIBackend::opencode:
        return std::nullopt;
    }
    Q_UNREACHABLE();
}

std::optional<Model> defaultVoiceDraftModel(const QList<Model> &models, QuickTaskCLIBackend backend)
{
    return defaultBestModel(models, backend);
}

QList<QuickTaskPresetModelOption> presetModelOptions(QuickTaskCLIBackend backend, const QList<Model> &models)
{
    QList<QuickTaskPresetModelOption> options;
    options.reserve(models.size());
    for (const Model &model : models) {
        const bool isOpenCodeDefault = backend == QuickTaskCLIBackend::opencode && model.identifier.isEmpty();
        options.append(
            {model.identifier, isOpenCodeDefault ? QStringLiteral("default") : model.identifier.toLower()});
    }
    return options;
}

} // namespace QuickTaskModelCatalog
