#pragma once

#include <QJsonObject>
#include <QString>

#include <optional>

// The user's choice of model and effort for turning dictation into a prompt draft, per backend.
// The model is used only while overrideEnabled is set; otherwise the backend's default applies.
struct VoicePromptRewriteSelection {
    std::optional<QString> modelIdentifier;
    std::optional<QString> reasoningEffort;
    bool overrideEnabled = false;

    QJsonObject toJson() const;
    // Throws DecodingError.
    static VoicePromptRewriteSelection fromJson(const QJsonObject &object);

    friend bool operator==(const VoicePromptRewriteSelection &,
                           const VoicePromptRewriteSelection &) = default;
};
