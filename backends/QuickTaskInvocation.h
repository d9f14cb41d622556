#pragma once

#include "core/PromptAttachment.h"
#include "settings/QuickTaskCLIBackend.h"
#include "settings/QuickTaskPreset.h"

#include <QList>
#include <QString>
#include <QStringList>

// What a quick task hands to its backend: the prompt text and the argument list.
namespace QuickTaskInvocation {

// The prompt unchanged without attachments; otherwise an "Attached Paths" block naming
// each attachment's path, then the prompt.
QString augmentedPrompt(const QString &prompt, const QList<PromptAttachment> &attachments);

// The folders a backend must be allowed to read for the attachments: a folder itself, a
// file's parent. The working directory and repeats are left out.
QStringList attachmentDirectoryPaths(const QList<PromptAttachment> &attachments,
                                     const QString &workingDirectory);

// The arguments after argv[0]; the augmented prompt always comes last, after "--".
QStringList buildProcessArguments(const QString &prompt, const QString &workingDirectory,
                                  const QList<PromptAttachment> &attachments, const QuickTaskPreset &preset,
                                  QuickTaskCLIBackend backend);

// The model as opencode's --model takes it. Tarvel keeps opencode models in the canonical
// form provider//model, so that identifiers compare equal however they were written; opencode
// itself splits at the first "/" and knows no model "/model", so the separator goes back to
// one slash: anthropic//claude-x becomes anthropic/claude-x, openrouter//a/b openrouter/a/b.
QString openCodeModelArgument(const QString &model);

} // namespace QuickTaskInvocation
