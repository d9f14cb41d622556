#include "quicktasks/QuickTaskInvocation.h"

#include <QFileInfo>

namespace QuickTaskInvocation {

QString augmentedPrompt(const QString &prompt, const QList<PromptAttachment> &attachments)
{
    if (attachments.isEmpty())
        return prompt;
    QStringList lines;
    lines.reserve(attachments.size());
    for (const PromptAttachment &attachment : attachments)
        lines.append(QStringLiteral("- ") + attachment.path);
    return QStringLiteral(
               "Attached Paths\n--------------\nThe following files and folders were attached from Tarvel "
               "and are available on disk:\n") +
           lines.join(u'\n') +
           QStringLiteral(
               "\n\nUse these exact paths when reading, editing, or referencing the attached items.\n\n") +
           prompt;
}

QStringList attachmentDirectoryPaths(const QList<PromptAttachment> &attachments,
                                     const QString &workingDirectory)
{
    const QString working = PromptAttachment::standardizedPath(workingDirectory);
    QStringList paths;
    for (const PromptAttachment &attachment : attachments) {
        const QString path = PromptAttachment::standardizedPath(attachment.path);
        const QString directory = attachment.isDirectory() ? path : QFileInfo(path).path();
        if (directory != working && !paths.contains(directory))
            paths.append(directory);
    }
    return paths;
}

QStringList buildProcessArguments(const QString &prompt, const QString &workingDirectory,
                                  const QList<PromptAttachment> &attachments, const QuickTaskPreset &preset,
                                  QuickTaskCLIBackend backend)
{
    QStringList arguments;
    switch (backend) {
    case QuickTaskCLIBackend::codex:
        arguments << QStringLiteral("exec") << QStringLiteral("--json")
                  << QStringLiteral("--skip-git-repo-check") << QStringLiteral("--model") << preset.model
                  << QStringLiteral("-c")
                  << QStringLiteral("model_reasoning_effort=\"%1\"").arg(preset.reasoningEffort)
                  << QStringLiteral("-C") << workingDirectory;
        for (const QString &directory : attachmentDirectoryPaths(attachments, workingDirectory))
            arguments << QStringLiteral("--add-dir") << directory;
        for (const PromptAttachment &attachment : attachments) {
            if (attachment.isImage())
                arguments << QStringLiteral("--image") << attachment.path;
        }
        break;
    case QuickTaskCLIBackend::claude:
        arguments << QStringLiteral("-p") << QStringLiteral("--output-format") << QStringLiteral("text")
                  << QStringLiteral("--no-session-persistence")
                  << QStringLiteral("--dangerously-skip-permissions") << QStringLiteral("--model")
                  << preset.model << QStringLiteral("--effort") << preset.reasoningEffort;
        for (const QString &directory : attachmentDirectoryPaths(attachments, workingDirectory))
            arguments << QStringLiteral("--add-dir") << directory;
        break;
    case QuickTaskCLIBackend::opencode:
        arguments << QStringLiteral("run") << QStringLiteral("--variant") << preset.reasoningEffort;
        if (!preset.model.isEmpty())
            arguments << QStringLiteral("--model") << openCodeModelArgument(preset.model);
        for (const PromptAttachment &attachment : attachments) {
            if (!attachment.isDirectory())
                arguments << QStringLiteral("--file") << attachment.path;
        }
        arguments << QStringLiteral("--dir") << workingDirectory;
        break;
    }
    arguments << QStringLiteral("--") << augmentedPrompt(prompt, attachments);
    return arguments;
}

QString openCodeModelArgument(const QString &model)
{
    // Only the first doubled separator is ours; a model path may hold slashes of its own.
    const qsizetype separator = model.indexOf(QStringLiteral("//"));
    if (separator <= 0)
        return model;
    return model.left(separator) + u'/' + model.mid(separator + 2);
}

} // namespace QuickTaskInvocation
