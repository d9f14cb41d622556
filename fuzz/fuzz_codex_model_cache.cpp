#include "backends/BackendProfiles.h"
#include "fuzz/ModelCatalogChecks.h"

// codex's models_cache.json, which codex rewrites as it likes: the catalog read from it, and the
// model choices made from that catalog.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    qputenv("CODEX_HOME", Fuzz::scratchFolder().toUtf8());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz::writeScratchFile(QStringLiteral("models_cache.json"), Fuzz::bytes(data, size));
    Fuzz::exerciseModelChoices(BackendProfiles::of(QuickTaskCLIBackend::codex));
    return 0;
}
