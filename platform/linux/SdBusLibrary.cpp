#include "platform/linux/SdBusLibrary.h"

#include <dlfcn.h>

#include <optional>

const SdBusLibrary *SdBusLibrary::load()
{
    static const std::optional<SdBusLibrary> library = []() -> std::optional<SdBusLibrary> {
        void *handle = ::dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
        if (!handle)
            return std::nullopt;
        SdBusLibrary functions;
        bool complete = true;
#define TARVEL_SD_BUS_RESOLVE(name)                                                                          \
    functions.name = reinterpret_cast<decltype(&::name)>(::dlsym(handle, #name));                            \
    complete = complete && functions.name;
        TARVEL_SD_BUS_FUNCTIONS(TARVEL_SD_BUS_RESOLVE)
#undef TARVEL_SD_BUS_RESOLVE
        return complete ? std::optional<SdBusLibrary>(functions) : std::nullopt;
    }();
    return library ? &*library : nullptr;
}
