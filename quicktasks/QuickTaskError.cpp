#include "quicktasks/QuickTaskError.h"

#include "backends/BackendProfiles.h"

#include <QDir>

QuickTaskError::QuickTaskError(Kind kind, QuickTaskCLIBackend backend, QString description)
    : TarvelError(std::move(description))
    , m_kind(kind)
    , m_backend(backend)
{
}

QuickTaskError QuickTaskError::executableNotFound(QuickTaskCLIBackend backend)
{
    return QuickTaskError(
        Kind::executableNotFound, backend,
        QStringLiteral("Could not find the %1 executable.").arg(BackendProfiles::of(backend).longTitle()));
}

QuickTaskError QuickTaskError::versionCheckFailed(QuickTaskCLIBackend backend, const QString &message)
{
    return QuickTaskError(Kind::versionCheckFailed, backend, message);
}

QuickTaskError QuickTaskError::unsupportedDirectoryAttachments(QuickTaskCLIBackend backend, qsizetype count)
{
    const QString noun =
        count == 1 ? QStringLiteral("folder attachment is") : QStringLiteral("folder attachments are");
    return QuickTaskError(
        Kind::unsupportedDirectoryAttachments, backend,
        QStringLiteral("%1 can use attached files, but %2 %3 not supported yet. Remove folders or "
                       "choose Codex or Claude.")
            .arg(BackendProfiles::of(backend).displayTitle(), QString::number(count), noun));
}

QuickTaskError QuickTaskError::missingWorkingDirectory(QuickTaskCLIBackend backend, const QString &path)
{
    return QuickTaskError(Kind::missingWorkingDirectory, backend,
                          QStringLiteral("The working folder \u201c%1\u201d no longer exists. Choose another "
                                         "folder for the task.")
                              .arg(QDir::toNativeSeparators(path)));
}
