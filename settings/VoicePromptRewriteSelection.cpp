#include "settings/VoicePromptRewriteSelection.h"

#include "core/JSONCoding.h"

namespace {
const QString kModelIdentifier = QStringLiteral("modelIdentifier");
const QString kReasoningEffort = QStringLiteral("reasoningEffort");
const QString kOverrideEnabled = QStringLiteral("overrideEnabled");
} // namespace

QJsonObject VoicePromptRewriteSelection::toJson() const
{
    QJsonObject object{{kOverrideEnabled, overrideEnabled}};
    JSONCoding::insertOptional(object, kModelIdentifier, modelIdentifier);
    JSONCoding::insertOptional(object, kReasoningEffort, reasoningEffort);
    return object;
}

VoicePromptRewriteSelection VoicePromptRewriteSelection::fromJson(const QJsonObject &object)
{
    const std::optional<bool> overrideEnabled = JSONCoding::optionalBool(object, kOverrideEnabled);
    if (!overrideEnabled)
        throw DecodingError(
            QStringLiteral("The required key \u201c%1\u201d is missing.").arg(kOverrideEnabled));
    return {JSONCoding::optionalString(object, kModelIdentifier),
            JSONCoding::optionalString(object, kReasoningEffort), *overrideEnabled};
}
