#include "backends/BackendProfiles.h"

#include "backends/ClaudeBackendProfile.h"
#include "backends/CodexBackendProfile.h"
#include "backends/OpenCodeBackendProfile.h"

namespace BackendProfiles {

const QList<const BackendProfile *> &all()
{
    static const CodexBackendProfile codex;
    static const ClaudeBackendProfile claude;
    static const OpenCodeBackendProfile opencode;
    static const QList<const BackendProfile *> profiles{&codex, &claude, &opencode};
    return profiles;
}

const BackendProfile &of(QuickTaskCLIBackend backend)
{
    for (const BackendProfile *profile : all()) {
        if (profile->backend() == backend)
            return *profile;
    }
    Q_UNREACHABLE();
}

std::optional<QuickTaskCLIBackend> fromRawValue(const QString &rawValue)
{
    for (const BackendProfile *profile : all()) {
        if (profile->rawValue() == rawValue)
            return profile->backend();
    }
    return std::nullopt;
}

} // namespace BackendProfiles
