#pragma once

#include "settings/QuickTaskCLIBackend.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// One row of a model pop-up menu.
struct QuickTaskPresetModelOption {
    QString identifier;
    QString title;

    friend bool operator==(const QuickTaskPresetModelOption &, const QuickTaskPresetModelOption &) = default;
};

// Which models each backend offers and which reasoning efforts they take. Nothing is kept between
// calls: every query reads the backend's own files again, so a model the user adds with their tool
// shows up the next time a menu is built. A missing or unreadable file is never an error; it only
// leaves the list short.
namespace QuickTaskModelCatalog {

struct Model {
    // Passed to the backend as the model name; empty means the backend's own default (opencode).
    QString identifier;
    QString displayName;
    QString description;
    QString defaultReasoningLevel;
    QStringList supportedReasoningLevels;

    bool supports(const QString &effort) const { return supportedReasoningLevels.contains(effort); }
    // The default level when the model takes it, else its first level, else "medium".
    QString resolvedDefaultReasoningEffort() const;
    QString highestSupportedReasoningEffort() const;
    QString lowestSupportedReasoningEffort() const;
    // The first entry of order that the model supports; resolvedDefaultReasoningEffort() when none.
    QString preferredReasoningEffort(const QStringList &order) const;

    friend bool operator==(const Model &, const Model &) = default;
};

// "minimal", "low", "medium", "high", "xhigh", "max".
const QStringList &reasoningEffortVocabulary();
// The variants opencode accepts: "minimal", "low", "medium", "high", "max".
const QStringList &openCodeReasoningVariants();
// "max" first, down to "minimal".
const QStringList &descendingReasoningEfforts();
// "minimal" first, up to "max".
const QStringList &ascendingReasoningEfforts();

QList<Model> availableModels(QuickTaskCLIBackend backend);

// ~/.codex/models_cache.json, visible entries in file order; empty when the file is missing or bad.
QList<Model> loadCodexAvailableModels();
// The default entry, then the models of opencode.json in opencode's configuration folder.
QList<Model> loadOpenCodeAvailableModels();
const QList<Model> &claudeAvailableModels();
// Stands for whatever model opencode's own configuration picks.
Model openCodeDefaultModel();

QString codexModelCachePath();
QString openCodeConfigPath();

// provider + "//" + model: the doubled separator is the canonical form and is kept on purpose.
QString canonicalOpenCodeModelIdentifier(const QString &provider, const QString &modelPath);
// "anthropic/claude-x" and "anthropic//claude-x" both become "anthropic//claude-x".
QString normalizedOpenCodeModelIdentifier(const QString &text);

std::optional<Model> defaultBestModel(const QList<Model> &models, QuickTaskCLIBackend backend);
std::optional<Model> defaultFastModel(const QList<Model> &models, QuickTaskCLIBackend backend);
std::optional<Model> defaultVoiceDraftModel(const QList<Model> &models, QuickTaskCLIBackend backend);

QList<QuickTaskPresetModelOption> presetModelOptions(QuickTaskCLIBackend backend, const QList<Model> &models);

} // namespace QuickTaskModelCatalog
