#include "backends/BackendProfiles.h"
#include "fuzz/ModelCatalogChecks.h"

// One backend's model catalog file (TARVEL_FUZZ_BACKEND): codex's models_cache.json, which codex
// rewrites as it likes, or opencode's opencode.json, written by hand by its users. The catalog
// read from it, and the model choices made from that catalog.
namespace {
constexpr QuickTaskCLIBackend kBackend = QuickTaskCLIBackend::TARVEL_FUZZ_BACKEND;
constexpr bool kCodex = kBackend == QuickTaskCLIBackend::codex;
} // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // Where the backend looks for its file: the scratch folder.
    qputenv(kCodex ? "CODEX_HOME" : "XDG_CONFIG_HOME", Fuzz::scratchFolder().toUtf8());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz::writeScratchFile(kCodex ? QStringLiteral("models_cache.json")
                                  : QStringLiteral("opencode/opencode.json"),
                           Fuzz::bytes(data, size));
    Fuzz::exerciseModelChoices(BackendProfiles::of(kBackend));
    return 0;
}
