#pragma once

#include "backends/ModelChoice.h"
#include "backends/QuickTaskCLIBackend.h"
#include "settings/QuickTaskModelCatalog.h"

#include <QJsonObject>
#include <QList>
#include <QString>

class KeyboardShortcuts;

// One quick-task preset: a model and a reasoning effort for one backend, as stored and shown in
// menus. What makes it valid is the backend's (BackendProfile's model-choice rules).
struct QuickTaskPreset : ModelChoice {
    using Model = QuickTaskModelCatalog::Model;

    // Shorthands for the backend profile's isConfigured and isAvailable.
    bool isConfigured(QuickTaskCLIBackend backend) const;
    bool isAvailable(const QList<Model> &models, QuickTaskCLIBackend backend) const;

    // The menu row of the preset at index (0 first): "⌘1   gpt-5.2-codex high", or "⌘1   unavailable"
    // when not configured for the backend.
    QString menuTitle(int index, QuickTaskCLIBackend backend, const KeyboardShortcuts &shortcuts) const;
    // The shortcut text of preset position index + 1 ("none" when there is none).
    static QString keyboardShortcutLabel(int index, const KeyboardShortcuts &shortcuts);

    QJsonObject toJson() const;
    // Throws DecodingError.
    static QuickTaskPreset fromJson(const QJsonObject &object);

    friend bool operator==(const QuickTaskPreset &, const QuickTaskPreset &) = default;
};
