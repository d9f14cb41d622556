#pragma once

#include "backends/BackendModel.h"
#include "backends/BackendOutputParser.h"
#include "backends/ModelChoice.h"
#include "backends/QuickTaskCLIBackend.h"
#include "core/PromptAttachment.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>

// Everything Tarvel knows about one backend: its names, how to find and verify its executable,
// the argument lists of a quick task and of a rewrite, how to read its output, where its models
// come from, what it accepts and how its model choices are kept valid. One subclass per backend,
// registered in BackendProfiles; nothing else asks which backend it is.
class BackendProfile {
public:
    virtual ~BackendProfile() = default;

    // Identity and names.
    virtual QuickTaskCLIBackend backend() const = 0;
    // The executable's name and the persisted form: "codex".
    virtual QString rawValue() const = 0;
    // "Codex", "Claude", "OpenCode".
    virtual QString displayTitle() const = 0;
    // "Codex CLI", "Claude CLI", "OpenCode".
    virtual QString longTitle() const = 0;

    // Finding and verifying the executable.
    // The environment variable that names the executable ("CODEX_BIN_PATH").
    virtual QString overrideVariable() const = 0;
    // A path tried before everything else.
    virtual std::optional<QString> fallbackExecutablePath() const { return std::nullopt; }
    virtual QStringList versionArguments() const = 0;
    // The version answer among the command's two streams, trimmed: standard output, else
    // standard error.
    virtual QString versionOutput(const QByteArray &standardOutput, const QByteArray &standardError) const;
    // Whether the version command's output is a version at all: a digit, unless the backend
    // knows better.
    virtual bool isVersionAnswer(const QString &output) const;
    // The executable name, a blank and the version arguments: "codex -V".
    QString versionCommandDisplay() const;

    // Capabilities.
    virtual bool acceptsFolders() const = 0;
    // The attachments the backend cannot take: the folders when it takes none.
    QList<PromptAttachment> unsupportedAttachments(const QList<PromptAttachment> &attachments) const;

    // Argument lists (after argv[0]); the prompt always comes last, after "--".
    virtual QStringList quickTaskArguments(const QString &prompt, const QString &workingDirectory,
                                           const QList<PromptAttachment> &attachments,
                                           const ModelChoice &choice) const = 0;
    virtual QStringList rewriteArguments(const QString &prompt, const QString &workingDirectory,
                                         const ModelChoice &choice) const = 0;

    // A fresh parser for one run's standard output.
    virtual std::unique_ptr<BackendOutputParser> makeOutputParser() const = 0;

    // The largest of the tools' files that is read; a larger one reads as absent.
    static constexpr qint64 maximumToolFileSize = 4 * 1024 * 1024;
    // The models on offer now, read again on every call from the backend's own files; a missing or
    // unreadable file only leaves the list short.
    virtual QList<BackendModel> availableModels() const = 0;
    // The backend's own file the models are read from; none when the list is built in.
    virtual std::optional<QString> modelSourcePath() const { return std::nullopt; }
    // Quick tasks also need a model list (codex cannot pick a model itself).
    virtual bool needsModelsForQuickTasks() const { return false; }
    // The title of a model in a model menu.
    virtual QString modelOptionTitle(const BackendModel &model) const { return model.identifier.toLower(); }
    // The form model identifiers are kept and compared in.
    virtual QString canonicalModelIdentifier(const QString &identifier) const { return identifier; }
    // Whether a chosen model must be in availableModels(); a backend that resolves models itself
    // (opencode) takes any.
    virtual bool checksModelsAgainstCatalog() const { return true; }

    // Model choices (presets and the voice draft).
    // Complete enough to run.
    virtual bool isConfigured(const ModelChoice &choice) const = 0;
    // Usable now with these models.
    virtual bool isAvailable(const ModelChoice &choice, const QList<BackendModel> &models) const = 0;
    // The catalog entry of the choice's model, compared in canonical form.
    std::optional<BackendModel> resolvedModel(const ModelChoice &choice,
                                              const QList<BackendModel> &models) const;
    // Whether the choice's model takes effort.
    virtual bool acceptsReasoningEffort(const ModelChoice &choice, const QString &effort,
                                        const QList<BackendModel> &models) const = 0;
    // Made to fit the models: what cannot be kept becomes unconfigured or the model's default.
    virtual ModelChoice sanitized(const ModelChoice &choice, const QList<BackendModel> &models) const = 0;
    virtual ModelChoice defaultChoice(ModelRole role, const QList<BackendModel> &models) const = 0;
    virtual QString defaultReasoningEffort(ModelRole role, const BackendModel &model) const = 0;
    // The row the preferences' add button inserts.
    virtual ModelChoice addedChoice() const { return {}; }
    // The choice for drafting a prompt from dictation with the given model; none, or a model the
    // backend does not offer, gives the default voice-draft choice.
    virtual ModelChoice voiceDraft(const std::optional<QString> &modelIdentifier,
                                   const QList<BackendModel> &models) const = 0;

protected:
    // Where a tool keeps its files: the folder the variable names when it holds an absolute path
    // (the tools ignore a relative one), else homeFolder under the home folder.
    static QString toolFolder(const char *variable, const QString &homeFolder);
    // A tool's file, when it is a plain file of at most maximumToolFileSize bytes. Anything else
    // (missing, a FIFO or a device, too large, unreadable) is nothing, silently: the file is the
    // tool's business, and it is read on the main thread.
    static std::optional<QByteArray> readToolFile(const QString &path);
};
