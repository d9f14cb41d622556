#include "settings/QuickTaskCLIBackend.h"

#include <QDir>

namespace QuickTaskCLIBackends {

const QList<QuickTaskCLIBackend> &allCases()
{
    static const QList<QuickTaskCLIBackend> cases{QuickTaskCLIBackend::codex, QuickTaskCLIBackend::claude,
                                                  QuickTaskCLIBackend::opencode};
    return cases;
}

QString rawValue(QuickTaskCLIBackend backend)
{
    switch (backend) {
    case QuickTaskCLIBackend::codex:
        return QStringLiteral("codex");
    case QuickTaskCLIBackend::claude:
        return QStringLiteral("claude");
    case QuickTaskCLIBackend::opencode:
        return QStringLiteral("opencode");
    }
    Q_UNREACHABLE();
}

std::optional<QuickTaskCLIBackend> fromRawValue(const QString &rawValue)
{
    for (QuickTaskCLIBackend backend : allCases()) {
        if (QuickTaskCLIBackends::rawValue(backend) == rawValue)
            return backend;
    }
    return std::nullopt;
}

QString executableName(QuickTaskCLIBackend backend)
{
    return rawValue(backend);
}

QString displayTitle(QuickTaskCLIBackend backend)
{
    switch (backend) {
    case QuickTaskCLIBackend::codex:
        return QStringLiteral("Codex");
    case QuickTaskCLIBackend::claude:
        return QStringLiteral("Claude");
    case QuickTaskCLIBackend::opencode:
        return QStringLiteral("OpenCode");
    }
    Q_UNREACHABLE();
}

QString longTitle(QuickTaskCLIBackend backend)
{
    switch (backend) {
    case QuickTaskCLIBackend::codex:
        return QStringLiteral("Codex CLI");
    case QuickTaskCLIBackend::claude:
        return QStringLiteral("Claude CLI");
    case QuickTaskCLIBackend::opencode:
        return QStringLiteral("OpenCode");
    }
    Q_UNREACHABLE();
}

QStringList versionArguments(QuickTaskCLIBackend backend)
{
    return backend == QuickTaskCLIBackend::codex ? QStringList{QStringLiteral("-V")}
                                                 : QStringList{QStringLiteral("--version")};
}

QString versionCommandDisplay(QuickTaskCLIBackend backend)
{
    return executableName(backend) + u' ' + versionArguments(backend).join(u' ');
}

std::optional<QString> fallbackExecutablePath(QuickTaskCLIBackend backend)
{
    if (backend != QuickTaskCLIBackend::opencode)
        return std::nullopt;
    return QDir::homePath() + QStringLiteral("/.opencode/bin/opencode");
}

} // namespace QuickTaskCLIBackends
