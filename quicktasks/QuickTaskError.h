#pragma once

#include "backends/QuickTaskCLIBackend.h"
#include "core/TarvelError.h"

// Why a quick task, a rewrite or an availability check cannot use a backend.
class QuickTaskError final : public TarvelError {
public:
    enum class Kind {
        executableNotFound,
        versionCheckFailed,
        unsupportedDirectoryAttachments,
        missingWorkingDirectory
    };

    // "Could not find the <long title> executable."
    static QuickTaskError executableNotFound(QuickTaskCLIBackend backend);
    // The message is the whole description.
    static QuickTaskError versionCheckFailed(QuickTaskCLIBackend backend, const QString &message);
    static QuickTaskError unsupportedDirectoryAttachments(QuickTaskCLIBackend backend, qsizetype count);
    // The folder the task would run in is gone (moved, deleted, an unmounted disk).
    static QuickTaskError missingWorkingDirectory(QuickTaskCLIBackend backend, const QString &path);

    Kind kind() const noexcept { return m_kind; }
    QuickTaskCLIBackend backend() const noexcept { return m_backend; }
    const QString &errorDescription() const noexcept { return description(); }

private:
    QuickTaskError(Kind kind, QuickTaskCLIBackend backend, QString description);

    Kind m_kind;
    QuickTaskCLIBackend m_backend;
};
