#include "backends/QuickTaskInvocation.h"

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

} // namespace QuickTaskInvocation
