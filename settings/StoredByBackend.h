#pragma once

#include "core/JSONCoding.h"
#include "settings/QuickTaskCLIBackend.h"
#include "settings/QuickTaskPresetSettings.h"
#include "settings/VoicePromptRewriteSelection.h"

#include <QJsonObject>

#include <optional>

// One optional value per backend, stored together under one user-defaults key as
// {"codex": ..., "claude": ..., "opencode": ...}; a backend with nothing stored is left out.
template<typename T> struct StoredByBackend {
    std::optional<T> codex;
    std::optional<T> claude;
    std::optional<T> opencode;

    std::optional<T> &slot(QuickTaskCLIBackend backend)
    {
        switch (backend) {
        case QuickTaskCLIBackend::codex:
            return codex;
        case QuickTaskCLIBackend::claude:
            return claude;
        case QuickTaskCLIBackend::opencode:
            return opencode;
        }
        Q_UNREACHABLE();
    }
    const std::optional<T> &slot(QuickTaskCLIBackend backend) const
    {
        return const_cast<StoredByBackend *>(this)->slot(backend);
    }

    QJsonObject toJson() const
    {
        QJsonObject object;
        for (QuickTaskCLIBackend backend : QuickTaskCLIBackends::allCases()) {
            if (const std::optional<T> &value = slot(backend))
                object.insert(QuickTaskCLIBackends::rawValue(backend), value->toJson());
        }
        return object;
    }

    // Throws DecodingError: one bad slot makes the whole container unreadable.
    static StoredByBackend fromJson(const QJsonObject &object)
    {
        StoredByBackend stored;
        for (QuickTaskCLIBackend backend : QuickTaskCLIBackends::allCases()) {
            const QString key = QuickTaskCLIBackends::rawValue(backend);
            const QJsonValue value = object.value(key);
            if (value.isUndefined() || value.isNull())
                continue;
            if (!value.isObject())
                throw DecodingError(QStringLiteral("The value of \u201c%1\u201d is not an object.").arg(key));
            stored.slot(backend) = T::fromJson(value.toObject());
        }
        return stored;
    }

    friend bool operator==(const StoredByBackend &, const StoredByBackend &) = default;
};

using StoredQuickTaskPresetSettingsByBackend = StoredByBackend<QuickTaskPresetSettings>;
using StoredVoicePromptRewriteSettingsByBackend = StoredByBackend<VoicePromptRewriteSelection>;
