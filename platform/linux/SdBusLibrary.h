#pragma once

#include <systemd/sd-bus.h>

// The functions of sd-bus that tarvel-edit uses, from libsystemd opened when it first needs the
// bus rather than linked: loading libsystemd and the six libraries it pulls in takes about a
// millisecond, which the helper then spends after its request is in the folder, where the
// application already sees it. The members carry the functions' own names.
#define TARVEL_SD_BUS_FUNCTIONS(X)                                                                           \
    X(sd_bus_add_match_async)                                                                                \
    X(sd_bus_call)                                                                                           \
    X(sd_bus_call_method)                                                                                    \
    X(sd_bus_call_method_async)                                                                              \
    X(sd_bus_close_unref)                                                                                    \
    X(sd_bus_emit_signal)                                                                                    \
    X(sd_bus_error_free)                                                                                     \
    X(sd_bus_flush)                                                                                          \
    X(sd_bus_get_events)                                                                                     \
    X(sd_bus_get_fd)                                                                                         \
    X(sd_bus_get_timeout)                                                                                    \
    X(sd_bus_message_append)                                                                                 \
    X(sd_bus_message_close_container)                                                                        \
    X(sd_bus_message_enter_container)                                                                        \
    X(sd_bus_message_is_method_error)                                                                        \
    X(sd_bus_message_new_method_call)                                                                        \
    X(sd_bus_message_open_container)                                                                         \
    X(sd_bus_message_read)                                                                                   \
    X(sd_bus_message_unref)                                                                                  \
    X(sd_bus_open_user)                                                                                      \
    X(sd_bus_process)                                                                                        \
    X(sd_bus_set_method_call_timeout)                                                                        \
    X(sd_bus_slot_unref)

struct SdBusLibrary {
#define TARVEL_SD_BUS_MEMBER(name) decltype(&::name) name = nullptr;
    TARVEL_SD_BUS_FUNCTIONS(TARVEL_SD_BUS_MEMBER)
#undef TARVEL_SD_BUS_MEMBER

    // libsystemd.so.0 with every function found, or null; loaded once.
    static const SdBusLibrary *load();
};
