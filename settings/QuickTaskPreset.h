#pragma once

#include "settings/QuickTaskCLIBackend.h"
#include "settings/QuickTaskModelCatalog.h"

#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

class KeyboardShortcuts;

// One quick-task preset: a model and a reasoning effort for one backend. An empty
// model means the backend's own default.
struct QuickTaskPreset {
    using Model = QuickTaskModelCatalog::Model;

    // What a newly made preset is for.
    enum class DefaultProfile { best, fast, voiceDraft };

    QString model;
    QString reasoningEffort;

    // Model and effort are both set (codex, claude), or the effort is an opencode variant.
    bool isConfigured(QuickTaskCLIBackend backend) const;
    // Usable now: for codex and claude the model is in the catalog and takes the effort. With no
    // catalog at all (codex has not cached one yet) a configured preset is given the benefit of
    // the doubt.
    bool isAvailable(const QList<Model> &models, QuickTaskCLIBackend backend) const;
    // The catalog entry of the model; for opencode the identifier is compared in its canonical form.
    std::optional<Model> resolvedModel(const QList<Model> &models, QuickTaskCLIBackend backend) const;
    // Made to fit the catalog: unknown codex and claude models become unconfigured, an effort the
    // model does not take becomes its default, opencode identifiers are made canonical.
    QuickTaskPreset sanitized(const QList<Model> &models, QuickTaskCLIBackend backend) const;

    // The menu row of the preset at index (0 first): "⌘1   gpt-5.2-codex high", or "⌘1   unavailable"
    // when not configured for the backend.
    QString menuTitle(int index, QuickTaskCLIBackend backend, const KeyboardShortcuts &shortcuts) const;

    static QuickTaskPreset defaultPreset(DefaultProfile profile, const QList<Model> &models,
                                         QuickTaskCLIBackend backend);
    // The row the preferences' add button inserts.
    static QuickTaskPreset defaultAddedPreset(QuickTaskCLIBackend backend);
    // The preset for drafting a prompt from dictation with the given model; none or an unknown
    // codex/claude model gives the backend's default voice-draft preset.
    static QuickTaskPreset voiceDraft(const std::optional<QString> &modelIdentifier,
                                      const QList<Model> &models, QuickTaskCLIBackend backend);
    static QString defaultReasoningEffort(DefaultProfile profile, const Model &model,
                                          QuickTaskCLIBackend backend);
    // The shortcut text of preset position index + 1 ("none" when there is none).
    static QString keyboardShortcutLabel(int index, const KeyboardShortcuts &shortcuts);

    QJsonObject toJson() const;
    // Throws DecodingError.
    static QuickTaskPreset fromJson(const QJsonObject &object);

    friend bool operator==(const QuickTaskPreset &, const QuickTaskPreset &) = default;
};
