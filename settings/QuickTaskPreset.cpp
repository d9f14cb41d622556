#include "settings/QuickTaskPreset.h"

#include "core/JSONCoding.h"
#include "shortcuts/KeyboardShortcuts.h"

using QuickTaskModelCatalog::Model;

namespace {

const QString kModel = QStringLiteral("model");
const QString kReasoningEffort = QStringLiteral("reasoningEffort");
// Written by an early layout for "whatever codex considers best"; the best default replaces it.
const QString kLegacyLatestBestModel = QStringLiteral("latest_best");

std::optional<Model> defaultModel(QuickTaskPreset::DefaultProfile profile, const QList<Model> &models,
                                  QuickTaskCLIBackend backend)
{
    switch (profile) {
    case QuickTaskPreset::DefaultProfile::best:
        return QuickTaskModelCatalog::defaultBestModel(models, backend);
    case QuickTaskPreset::DefaultProfile::fast:
        return QuickTaskModelCatalog::defaultFastModel(models, backend);
    case QuickTaskPreset::DefaultProfile::voiceDraft:
        return QuickTaskModelCatalog::defaultVoiceDraftModel(models, backend);
    }
    Q_UNREACHABLE();
}

} // namespace

bool QuickTaskPreset::isConfigured(QuickTaskCLIBackend backend) const
{
    if (backend == QuickTaskCLIBackend::opencode)
        return QuickTaskModelCatalog::openCodeReasoningVariants().contains(reasoningEffort);
    return !model.isEmpty() && !reasoningEffort.isEmpty();
}

std::optional<Model> QuickTaskPreset::resolvedModel(const QList<Model> &models,
                                                    QuickTaskCLIBackend backend) const
{
    const QString identifier = backend == QuickTaskCLIBackend::opencode
                                   ? QuickTaskModelCatalog::normalizedOpenCodeModelIdentifier(model)
                                   : model;
    for (const Model &candidate : models) {
        if (candidate.identifier == identifier)
            return candidate;
    }
    return std::nullopt;
}

bool QuickTaskPreset::isAvailable(const QList<Model> &models, QuickTaskCLIBackend backend) const
{
    if (backend == QuickTaskCLIBackend::opencode || models.isEmpty())
        return isConfigured(backend);
    const std::optional<Model> resolved = resolvedModel(models, backend);
    return resolved && resolved->supports(reasoningEffort);
}

QuickTaskPreset QuickTaskPreset::sanitized(const QList<Model> &models, QuickTaskCLIBackend backend) const
{
    if (backend == QuickTaskCLIBackend::opencode) {
        const bool knownEffort = QuickTaskModelCatalog::openCodeReasoningVariants().contains(reasoningEffort);
        return {QuickTaskModelCatalog::normalizedOpenCodeModelIdentifier(model),
                knownEffort ? reasoningEffort : QStringLiteral("medium")};
    }
    if (backend == QuickTaskCLIBackend::codex && model == kLegacyLatestBestModel)
        return defaultPreset(DefaultProfile::best, models, backend);
    if (models.isEmpty()) {
        // Nothing to check against yet: keep a complete preset rather than lose the user's choice.
        if (!model.isEmpty() && !reasoningEffort.isEmpty())
            return *this;
        return {};
    }
    const std::optional<Model> resolved = resolvedModel(models, backend);
    if (!resolved)
        return {};
    return {resolved->identifier, resolved->supports(reasoningEffort)
                                      ? reasoningEffort
                                      : resolved->resolvedDefaultReasoningEffort()};
}

QString QuickTaskPreset::defaultReasoningEffort(DefaultProfile profile, const Model &model,
                                                QuickTaskCLIBackend backend)
{
    switch (backend) {
    case QuickTaskCLIBackend::opencode:
        return profile == DefaultProfile::best ? QStringLiteral("max") : QStringLiteral("low");
    case QuickTaskCLIBackend::claude:
        if (profile == DefaultProfile::best)
            return model.supports(QStringLiteral("high")) ? QStringLiteral("high")
                                                          : model.highestSupportedReasoningEffort();
        return model.supports(QStringLiteral("low")) ? QStringLiteral("low")
                                                     : model.lowestSupportedReasoningEffort();
    case QuickTaskCLIBackend::codex:
        switch (profile) {
        case DefaultProfile::best:
            return model.highestSupportedReasoningEffort();
        case DefaultProfile::fast:
            return model.resolvedDefaultReasoningEffort();
        case DefaultProfile::voiceDraft:
            return model.lowestSupportedReasoningEffort();
        }
    }
    Q_UNREACHABLE();
}

QuickTaskPreset QuickTaskPreset::defaultPreset(DefaultProfile profile, const QList<Model> &models,
                                               QuickTaskCLIBackend backend)
{
    if (backend == QuickTaskCLIBackend::opencode)
        return {QString(),
                defaultReasoningEffort(profile, QuickTaskModelCatalog::openCodeDefaultModel(), backend)};
    const std::optional<Model> model = defaultModel(profile, models, backend);
    if (!model)
        return {};
    return {model->identifier, defaultReasoningEffort(profile, *model, backend)};
}

QuickTaskPreset QuickTaskPreset::defaultAddedPreset(QuickTaskCLIBackend backend)
{
    if (backend == QuickTaskCLIBackend::opencode)
        return {QString(), QStringLiteral("medium")};
    return {};
}

QuickTaskPreset QuickTaskPreset::voiceDraft(const std::optional<QString> &modelIdentifier,
                                            const QList<Model> &models, QuickTaskCLIBackend backend)
{
    if (!modelIdentifier)
        return defaultPreset(DefaultProfile::voiceDraft, models, backend);
    if (backend == QuickTaskCLIBackend::opencode) {
        // A hand-configured opencode model need not be in the config file; opencode resolves it itself.
        return {QuickTaskModelCatalog::normalizedOpenCodeModelIdentifier(*modelIdentifier),
                defaultReasoningEffort(DefaultProfile::voiceDraft,
                                       QuickTaskModelCatalog::openCodeDefaultModel(), backend)};
    }
    const std::optional<Model> model =
        QuickTaskPreset{*modelIdentifier, QString()}.resolvedModel(models, backend);
    if (!model)
        return defaultPreset(DefaultProfile::voiceDraft, models, backend);
    return {model->identifier, defaultReasoningEffort(DefaultProfile::voiceDraft, *model, backend)};
}

QString QuickTaskPreset::keyboardShortcutLabel(int index, const KeyboardShortcuts &shortcuts)
{
    const std::optional<ShortcutName> name = ShortcutNames::quickTaskPreset(index + 1);
    if (!name)
        return QStringLiteral("none");
    if (const std::optional<Shortcut> shortcut = shortcuts.getShortcut(*name))
        return shortcuts.displayText(*shortcut);
    if (name->defaultShortcut)
        return shortcuts.displayText(*name->defaultShortcut);
    return QStringLiteral("none");
}

QString QuickTaskPreset::menuTitle(int index, QuickTaskCLIBackend backend,
                                   const KeyboardShortcuts &shortcuts) const
{
    const QString label = keyboardShortcutLabel(index, shortcuts) + QStringLiteral("   ");
    if (!isConfigured(backend))
        return label + QStringLiteral("unavailable");
    const QString modelTitle = model.isEmpty() ? QStringLiteral("default") : model.toLower();
    return label + modelTitle + u' ' + reasoningEffort.toLower();
}

QJsonObject QuickTaskPreset::toJson() const
{
    return QJsonObject{{kModel, model}, {kReasoningEffort, reasoningEffort}};
}

QuickTaskPreset QuickTaskPreset::fromJson(const QJsonObject &object)
{
    return {JSONCoding::requiredString(object, kModel), JSONCoding::requiredString(object, kReasoningEffort)};
}
