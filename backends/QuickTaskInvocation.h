#pragma once

#include "core/PromptAttachment.h"

#include <QList>
#include <QString>
#include <QStringList>

// The parts of a quick task's invocation that every backend shares; the argument lists
// themselves are the backends' (BackendProfile::quickTaskArguments).
namespace QuickTaskInvocation {

// The prompt unchanged without attachments; otherwise an "Attached Paths" block naming
// each attachment's path, then the prompt.
QString augmentedPrompt(const QString &prompt, const QList<PromptAttachment> &attachments);

// The folders a backend must be allowed to read for the attachments: a folder itself, a
// file's parent. The working directory and repeats are left out.
QStringList attachmentDirectoryPaths(const QList<PromptAttachment> &attachments,
                                     const QString &workingDirectory);

} // namespace QuickTaskInvocation
