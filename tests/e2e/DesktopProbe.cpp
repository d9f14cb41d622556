// tarvel-desktop-probe: answers the questions about an X display that the command-line
// tools cannot, for the desktop harness's readiness checks.
//
//   tarvel-desktop-probe selection-owner NAME   prints the owner window; exit 0 if owned, 1 if not
//
// Exit status 2 when the display cannot be opened or the arguments are wrong.

#include <xcb/xcb.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

struct FreeDeleter {
    void operator()(void *pointer) const { std::free(pointer); }
};

int selectionOwner(xcb_connection_t *connection, const char *name)
{
    std::unique_ptr<xcb_intern_atom_reply_t, FreeDeleter> atom(xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, std::uint16_t(std::strlen(name)), name), nullptr));
    if (!atom)
        return 2;
    std::unique_ptr<xcb_get_selection_owner_reply_t, FreeDeleter> owner(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, atom->atom), nullptr));
    if (!owner)
        return 2;
    if (owner->owner == XCB_NONE)
        return 1;
    std::printf("0x%x\n", owner->owner);
    return 0;
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 3 || std::strcmp(argv[1], "selection-owner") != 0) {
        std::fprintf(stderr, "usage: %s selection-owner NAME\n", argv[0]);
        return 2;
    }
    xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        std::fprintf(stderr, "%s: cannot open the display\n", argv[0]);
        xcb_disconnect(connection);
        return 2;
    }
    const int status = selectionOwner(connection, argv[2]);
    xcb_disconnect(connection);
    return status;
}
