#include "platform/linux/X11GlobalHotKeyService.h"

#include "platform/linux/PortalGlobalHotKeyService.h"
#include "platform/linux/QtX11Connection.h"
#include "platform/linux/X11HotKeyMapping.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QTimer>

#include <X11/keysym.h>
#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <cstdlib>
#include <memory>

namespace {

struct FreeDeleter {
    void operator()(void *pointer) const { std::free(pointer); }
};
template<typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

struct KeySymbolsDeleter {
    void operator()(xcb_key_symbols_t *symbols) const { xcb_key_symbols_free(symbols); }
};
using KeySymbols = std::unique_ptr<xcb_key_symbols_t, KeySymbolsDeleter>;

constexpr quint8 badAccess = 10;
// The modifier bits a grab can name; the rest of a key event's state are mouse buttons.
constexpr quint16 modifierBits = 0xff;

QList<quint8> keycodesOf(xcb_key_symbols_t *symbols, xcb_keysym_t keySymbol)
{
    QList<quint8> keycodes;
    Reply<xcb_keycode_t> list(xcb_key_symbols_get_keycode(symbols, keySymbol));
    for (const xcb_keycode_t *code = list.get(); code != nullptr && *code != XCB_NO_SYMBOL; ++code) {
        if (!keycodes.contains(*code))
            keycodes.append(*code);
    }
    return keycodes;
}

// The states of Caps Lock, and of Num Lock and Scroll Lock as this server maps them now.
QList<quint16> currentLockVariants(xcb_connection_t *connection, xcb_key_symbols_t *symbols)
{
    Reply<xcb_get_modifier_mapping_reply_t> reply(
        xcb_get_modifier_mapping_reply(connection, xcb_get_modifier_mapping(connection), nullptr));
    if (!reply)
        return X11HotKeyMapping::lockMaskVariants(0, 0);
    const xcb_keycode_t *codes = xcb_get_modifier_mapping_keycodes(reply.get());
    const QList<quint8> mapping(codes, codes + xcb_get_modifier_mapping_keycodes_length(reply.get()));
    const int perModifier = reply->keycodes_per_modifier;
    const quint16 numLock =
        X11HotKeyMapping::modifierMaskOf(mapping, perModifier, keycodesOf(symbols, XK_Num_Lock));
    const quint16 scrollLock =
        X11HotKeyMapping::modifierMaskOf(mapping, perModifier, keycodesOf(symbols, XK_Scroll_Lock));
    return X11HotKeyMapping::lockMaskVariants(numLock, scrollLock);
}

} // namespace

std::unique_ptr<GlobalHotKeyService> GlobalHotKeyService::create(QObject *parent)
{
    if (X11GlobalHotKeyService::isAvailable())
        return std::make_unique<X11GlobalHotKeyService>(parent);
    return std::make_unique<PortalGlobalHotKeyService>(parent);
}

X11GlobalHotKeyService::X11GlobalHotKeyService(QObject *parent)
    : GlobalHotKeyService(parent)
    , m_connection(qtX11Connection())
{
    if (m_connection == nullptr)
        return;
    for (xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(m_connection)); it.rem;
         xcb_screen_next(&it))
        m_roots.append(it.data->root);
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11GlobalHotKeyService::~X11GlobalHotKeyService()
{
    if (m_connection == nullptr)
        return;
    if (QCoreApplication::instance())
        QCoreApplication::instance()->removeNativeEventFilter(this);
    for (const auto &[id, registration] : m_registrations)
        ungrab(registration.grabs);
    xcb_flush(m_connection);
}

bool X11GlobalHotKeyService::isAvailable()
{
    return qtX11Connection() != nullptr;
}

QString X11GlobalHotKeyService::unavailableReason() const
{
    if (m_connection != nullptr)
        return {};
    return QStringLiteral("Global shortcuts need an X11 session or a desktop that offers the "
                          "GlobalShortcuts portal.");
}

QString X11GlobalHotKeyService::registerHotKey(int id, const Shortcut &shortcut)
{
    unregisterHotKey(id);
    if (m_connection == nullptr)
        return unavailableReason();
    const QString name = shortcut.displayText(nativeShortcutDisplayStyle());
    const std::optional<quint32> keySymbol = X11HotKeyMapping::keySymbol(shortcut);
    if (!keySymbol)
        return QStringLiteral("%1 cannot be used as a system-wide shortcut.").arg(name);

    // The keyboard may have been remapped since the last registration: read it afresh.
    const KeySymbols symbols(xcb_key_symbols_alloc(m_connection));
    Registration registration;
    registration.keycodes = keycodesOf(symbols.get(), *keySymbol);
    if (registration.keycodes.isEmpty())
        return QStringLiteral("%1 cannot be typed on this keyboard.").arg(name);
    registration.modifiers = X11HotKeyMapping::modifierMask(shortcut.carbonModifiers);
    const QList<quint16> lockVariants = currentLockVariants(m_connection, symbols.get());
    m_lockMasks = 0;
    for (const quint16 locks : lockVariants)
        m_lockMasks |= locks;

    // Send every grab first and then collect the answers, so that the round trips overlap.
    QList<QPair<Grab, xcb_void_cookie_t>> requests;
    for (const quint32 root : std::as_const(m_roots)) {
        for (const quint8 keycode : std::as_const(registration.keycodes)) {
            for (const quint16 locks : lockVariants) {
                // Not owner events: the press goes to the root even when one of our windows has focus.
                const Grab grab{root, keycode, quint16(registration.modifiers | locks)};
                requests.append({grab, xcb_grab_key_checked(m_connection, 0, root, grab.modifiers, keycode,
                                                            XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC)});
            }
        }
    }
    bool taken = false;
    bool failed = false;
    for (const auto &[grab, cookie] : std::as_const(requests)) {
        if (Reply<xcb_generic_error_t> error{xcb_request_check(m_connection, cookie)}) {
            (error->error_code == badAccess ? taken : failed) = true;
            continue;
        }
        registration.grabs.append(grab);
    }
    if (taken || failed) {
        ungrab(registration.grabs);
        xcb_flush(m_connection);
        if (taken)
            return QStringLiteral("%1 is already used by another application.").arg(name);
        return QStringLiteral("%1 could not be set up as a system-wide shortcut.").arg(name);
    }
    m_registrations[id] = registration;
    return {};
}

void X11GlobalHotKeyService::unregisterHotKey(int id)
{
    const auto it = m_registrations.find(id);
    if (it == m_registrations.end())
        return;
    ungrab(it->second.grabs);
    xcb_flush(m_connection);
    m_registrations.erase(it);
    m_held.remove(id);
    m_pendingReleases.remove(id);
}

void X11GlobalHotKeyService::ungrab(const QList<Grab> &grabs)
{
    for (const Grab &grab : grabs)
        xcb_ungrab_key(m_connection, grab.keycode, grab.root, grab.modifiers);
}

bool X11GlobalHotKeyService::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *)
{
    if (eventType != "xcb_generic_event_t" || m_registrations.empty())
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    const quint8 type = event->response_type & 0x7f;
    if (type != XCB_KEY_PRESS && type != XCB_KEY_RELEASE)
        return false;
    // Press and release have the same layout.
    const auto *key = reinterpret_cast<const xcb_key_press_event_t *>(event);
    if (!m_roots.contains(key->event))
        return false;
    if (type == XCB_KEY_PRESS)
        keyPressed(key->detail, key->state, key->time);
    else
        keyReleased(key->detail, key->time);
    return false;
}

void X11GlobalHotKeyService::keyPressed(quint8 keycode, quint16 state, quint32 time)
{
    const quint16 modifiers = state & modifierBits & ~m_lockMasks;
    for (const auto &[id, registration] : m_registrations) {
        if (registration.modifiers != modifiers || !registration.keycodes.contains(keycode))
            continue;
        const auto pending = m_pendingReleases.constFind(id);
        if (pending != m_pendingReleases.cend() && *pending == time) {
            m_pendingReleases.erase(pending);
            return;
        }
        // Releases that were real come before this press.
        finishReleases();
        if (m_held.contains(id))
            return;
        m_held.insert(id);
        Q_EMIT pressed(id);
        return;
    }
}

void X11GlobalHotKeyService::keyReleased(quint8 keycode, quint32 time)
{
    // The modifiers may be let go first: a release belongs to the held hot key of its key.
    for (const auto &[id, registration] : m_registrations) {
        if (!m_held.contains(id) || !registration.keycodes.contains(keycode))
            continue;
        const bool firstPending = m_pendingReleases.isEmpty();
        m_pendingReleases.insert(id, time);
        // A repeat's press is read with its release; report the release once both are handled.
        if (firstPending)
            QTimer::singleShot(0, this, &X11GlobalHotKeyService::finishReleases);
        return;
    }
}

void X11GlobalHotKeyService::finishReleases()
{
    const QList<int> ids = m_pendingReleases.keys();
    m_pendingReleases.clear();
    for (const int id : ids) {
        m_held.remove(id);
        Q_EMIT released(id);
    }
}
