#include "core/ComposerRequest.h"
#include "fuzz/FuzzSupport.h"

// A request file as anything may have left it in the Requests folder.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    Fuzz::checkRoundTrip<ComposerRequest>(Fuzz::bytes(data, size));
    return 0;
}
