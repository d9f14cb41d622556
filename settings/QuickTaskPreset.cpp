#include "settings/QuickTaskPreset.h"

#include "backends/BackendProfiles.h"
#include "core/JSONCoding.h"
#include "shortcuts/KeyboardShortcuts.h"

namespace {
const QString kModel = QStringLiteral("model");
const QString kReasoningEffort = QStringLiteral("reasoningEffort");
} // namespace

bool QuickTaskPreset::isConfigured(QuickTaskCLIBackend backend) const
{
    return BackendProfiles::of(backend).isConfigured(*this);
}

bool QuickTaskPreset::isAvailable(const QList<Model> &models, QuickTaskCLIBackend backend) const
{
    return BackendProfiles::of(backend).isAvailable(*this, models);
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
    return {
        {JSONCoding::requiredString(object, kModel), JSONCoding::requiredString(object, kReasoningEffort)}};
}
