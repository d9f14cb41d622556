#include "backends/BackendProfiles.h"
#include "fuzz/ModelCatalogChecks.h"

// opencode's opencode.json, written by hand by its users: the catalog read from it, and the model
// choices made from that catalog.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    qputenv("XDG_CONFIG_HOME", Fuzz::scratchFolder().toUtf8());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz::writeScratchFile(QStringLiteral("opencode/opencode.json"), Fuzz::bytes(data, size));
    Fuzz::exerciseModelChoices(BackendProfiles::of(QuickTaskCLIBackend::opencode));
    return 0;
}
