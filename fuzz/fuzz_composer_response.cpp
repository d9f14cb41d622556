#include "core/ComposerResponse.h"
#include "fuzz/FuzzSupport.h"

// A response file as tarvel-edit collects it from the Responses folder.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz::checkRoundTrip<ComposerResponse>(Fuzz::bytes(data, size));
    return 0;
}
