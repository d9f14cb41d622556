// Another X client holding a key combination, for the hot key tests: grabs one key on the root
// window, prints "grabbed" and keeps the grab until it is ended.
//
//   tarvel-test-key-grabber --key k --mods ctrl,alt
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>

namespace {

int fail(const char *message)
{
    std::fprintf(stderr, "tarvel-test-key-grabber: %s\n", message);
    return 1;
}

// ctrl, alt, shift, super, lock, mod2, mod3, mod5, separated by commas; -1 for an unknown name.
int modifierMask(const std::string &names)
{
    static const std::map<std::string, int> masks{
        {"ctrl", XCB_MOD_MASK_CONTROL}, {"alt", XCB_MOD_MASK_1},     {"shift", XCB_MOD_MASK_SHIFT},
        {"super", XCB_MOD_MASK_4},      {"lock", XCB_MOD_MASK_LOCK}, {"mod2", XCB_MOD_MASK_2},
        {"mod3", XCB_MOD_MASK_3},       {"mod5", XCB_MOD_MASK_5},    {"", 0}};
    int mask = 0;
    std::istringstream list(names);
    for (std::string name; std::getline(list, name, ',');) {
        const auto found = masks.find(name);
        if (found == masks.end())
            return -1;
        mask |= found->second;
    }
    return mask;
}

} // namespace

int main(int argc, char **argv)
{
    std::string key;
    std::string mods;
    for (int i = 1; i + 1 < argc; i += 2) {
        if (std::strcmp(argv[i], "--key") == 0)
            key = argv[i + 1];
        else if (std::strcmp(argv[i], "--mods") == 0)
            mods = argv[i + 1];
        else
            return fail("usage: --key CHARACTER [--mods ctrl,alt,shift,super,lock,mod2,...]");
    }
    const int mask = modifierMask(mods);
    if (key.size() != 1 || mask < 0)
        return fail("usage: --key CHARACTER [--mods ctrl,alt,shift,super,lock,mod2,...]");

    xcb_connection_t *connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection))
        return fail("cannot connect to the X display");
    const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    xcb_key_symbols_t *symbols = xcb_key_symbols_alloc(connection);
    // Latin-1 characters are their own key symbols.
    xcb_keycode_t *keycodes = xcb_key_symbols_get_keycode(symbols, xcb_keysym_t(key[0]));
    if (keycodes == nullptr || keycodes[0] == XCB_NO_SYMBOL)
        return fail("no key on this keyboard types that character");
    xcb_generic_error_t *error =
        xcb_request_check(connection, xcb_grab_key_checked(connection, 0, root, uint16_t(mask), keycodes[0],
                                                           XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    std::free(keycodes);
    xcb_key_symbols_free(symbols);
    if (error != nullptr) {
        std::free(error);
        return fail("the grab was refused");
    }
    std::printf("grabbed\n");
    std::fflush(stdout);
    while (xcb_generic_event_t *event = xcb_wait_for_event(connection))
        std::free(event);
    xcb_disconnect(connection);
    return 0;
}
