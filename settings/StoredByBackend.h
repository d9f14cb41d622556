#pragma once

#include "backends/BackendProfiles.h"
#include "core/JSONCoding.h"
#include "settings/QuickTaskPresetSettings.h"
#include "settings/VoicePromptRewriteSelection.h"

#include <QJsonObject>
#include <QMap>

#include <optional>

// One optional value per backend, stored together under one user-defaults key as
// {"codex": ..., "claude": ..., "opencode": ...}; a backend with nothing stored is left out.
template<typename T> struct StoredByBackend {
    QMap<QuickTaskCLIBackend, T> values;

    std::optional<T> slot(QuickTaskCLIBackend backend) const
    {
        const auto found = values.constFind(backend);
        return found == values.constEnd() ? std::nullopt : std::optional<T>(*found);
    }
    void setSlot(QuickTaskCLIBackend backend, const std::optional<T> &value)
    {
        if (value)
            values.insert(backend, *value);
        else
            values.remove(backend);
    }

    QJsonObject toJson() const
    {
        QJsonObject object;
        for (auto it = values.constBegin(); it != values.constEnd(); ++it)
            object.insert(BackendProfiles::of(it.key()).rawValue(), it.value().toJson());
        return object;
    }

    // Throws DecodingError: one bad slot makes the whole container unreadable.
    static StoredByBackend fromJson(const QJsonObject &object)
    {
        StoredByBackend stored;
        for (const BackendProfile *profile : BackendProfiles::all()) {
            const QString key = profile->rawValue();
            const QJsonValue value = object.value(key);
            if (value.isUndefined() || value.isNull())
                continue;
            if (!value.isObject())
                throw DecodingError(QStringLiteral("The value of \u201c%1\u201d is not an object.").arg(key));
            stored.values.insert(profile->backend(), T::fromJson(value.toObject()));
        }
        return stored;
    }

    friend bool operator==(const StoredByBackend &, const StoredByBackend &) = default;
};

using StoredQuickTaskPresetSettingsByBackend = StoredByBackend<QuickTaskPresetSettings>;
using StoredVoicePromptRewriteSettingsByBackend = StoredByBackend<VoicePromptRewriteSelection>;
