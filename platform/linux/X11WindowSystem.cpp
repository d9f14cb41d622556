#include "platform/linux/X11WindowSystem.h"

#include "platform/linux/ProcessExecutableName.h"
#include "platform/linux/QtX11Connection.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QRegularExpression>
#include <QScreen>
#include <QWindow>

#include <xcb/xcb.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <vector>

namespace {

struct FreeDeleter {
    void operator()(void *pointer) const { std::free(pointer); }
};
template<typename T> using Reply = std::unique_ptr<T, FreeDeleter>;

// Source indication of EWMH client messages: a pager acts for the user, so the window
// manager honours the request even though it comes from an application in the background.
constexpr quint32 SourcePager = 2;

enum Atom {
    NetClientListStacking,
    NetActiveWindow,
    NetRestackWindow,
    NetWmPid,
    NetWmWindowType,
    NetWmWindowTypeNormal,
    NetWmState,
    NetWmStateHidden,
    NetFrameExtents,
    GtkFrameExtents,
    NetWorkarea,
    NetCurrentDesktop,
    NetWmCmOwner,
    AtomCount
};

QList<quint32> cardinals(xcb_get_property_reply_t *reply)
{
    QList<quint32> values;
    if (reply == nullptr || reply->format != 32)
        return values;
    const auto *data = static_cast<const quint32 *>(xcb_get_property_value(reply));
    const int count = xcb_get_property_value_length(reply) / 4;
    values.reserve(count);
    for (int i = 0; i < count; ++i)
        values.append(data[i]);
    return values;
}

// The four widths of an extents property (left, right, top, bottom), zero when absent.
std::array<int, 4> extents(xcb_get_property_reply_t *reply)
{
    const QList<quint32> values = cardinals(reply);
    if (values.size() < 4)
        return {0, 0, 0, 0};
    return {int(values[0]), int(values[1]), int(values[2]), int(values[3])};
}

// A screen's rectangle in X's own pixels: Qt keeps each screen's top left and scales its size.
QRect nativeGeometry(const QScreen *screen)
{
    const QRect logical = screen->geometry();
    return QRect(logical.topLeft(), (QSizeF(logical.size()) * screen->devicePixelRatio()).toSize());
}

QRect toLogical(const QRect &native, const QScreen *screen)
{
    const qreal ratio = screen->devicePixelRatio();
    if (qFuzzyCompare(ratio, 1.0))
        return native;
    const QPointF origin = screen->geometry().topLeft();
    const QPointF topLeft = origin + QPointF(native.topLeft() - origin.toPoint()) / ratio;
    return QRectF(topLeft, QSizeF(native.size()) / ratio).toRect();
}

QRect toLogical(const QRect &native)
{
    const QPoint centre = native.center();
    for (const QScreen *screen : QGuiApplication::screens()) {
        if (nativeGeometry(screen).contains(centre))
            return toLogical(native, screen);
    }
    return native;
}

// Every request about one window goes out before any reply is read, so that describing
// all windows on the desktop costs one round trip instead of several per window.
struct WindowQuery {
    xcb_window_t window = XCB_NONE;
    xcb_get_window_attributes_cookie_t attributes{};
    xcb_get_geometry_cookie_t geometry{};
    xcb_translate_coordinates_cookie_t position{};
    xcb_get_property_cookie_t pid{};
    xcb_get_property_cookie_t windowClass{};
    xcb_get_property_cookie_t type{};
    xcb_get_property_cookie_t transientFor{};
    xcb_get_property_cookie_t state{};
    xcb_get_property_cookie_t frameExtents{};
    xcb_get_property_cookie_t gtkFrameExtents{};
};

struct WindowFacts {
    TopLevelWindow window;
    bool normal = false;
    bool visible = false;
};

} // namespace

class X11WindowSystem::Connection final {
public:
    Connection(xcb_connection_t *connection, int screenNumber)
        : m_connection(connection)
    {
        xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(connection));
        for (int i = 0; it.rem > 0; ++i, xcb_screen_next(&it)) {
            if (i == screenNumber || m_root == XCB_NONE)
                m_root = it.data->root;
        }
        const QByteArray compositorSelection = "_NET_WM_CM_S" + QByteArray::number(screenNumber);
        const std::array<QByteArray, AtomCount> names = {
            "_NET_CLIENT_LIST_STACKING",
            "_NET_ACTIVE_WINDOW",
            "_NET_RESTACK_WINDOW",
            "_NET_WM_PID",
            "_NET_WM_WINDOW_TYPE",
            "_NET_WM_WINDOW_TYPE_NORMAL",
            "_NET_WM_STATE",
            "_NET_WM_STATE_HIDDEN",
            "_NET_FRAME_EXTENTS",
            "_GTK_FRAME_EXTENTS",
            "_NET_WORKAREA",
            "_NET_CURRENT_DESKTOP",
            compositorSelection,
        };
        std::array<xcb_intern_atom_cookie_t, AtomCount> cookies{};
        for (int i = 0; i < AtomCount; ++i)
            cookies[i] = xcb_intern_atom(connection, false, quint16(names[i].size()), names[i].constData());
        for (int i = 0; i < AtomCount; ++i) {
            Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(connection, cookies[i], nullptr));
            m_atoms[i] = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        }
    }

    xcb_connection_t *get() const { return m_connection; }
    xcb_window_t root() const { return m_root; }
    xcb_atom_t atom(Atom which) const { return m_atoms[which]; }

    xcb_get_property_cookie_t property(xcb_window_t window, xcb_atom_t name, xcb_atom_t type,
                                       quint32 longLength = 64) const
    {
        return xcb_get_property(m_connection, false, window, name, type, 0, longLength);
    }

    Reply<xcb_get_property_reply_t> propertyReply(xcb_get_property_cookie_t cookie) const
    {
        return Reply<xcb_get_property_reply_t>(xcb_get_property_reply(m_connection, cookie, nullptr));
    }

    QList<quint32> rootCardinals(Atom name, xcb_atom_t type) const
    {
        return cardinals(propertyReply(property(m_root, atom(name), type, 1024)).get());
    }

    QList<WindowFacts> describe(const QList<quint32> &windows) const;

    void sendToRoot(xcb_window_t window, Atom type, const std::array<quint32, 3> &data) const
    {
        xcb_client_message_event_t event;
        std::memset(&event, 0, sizeof event);
        event.response_type = XCB_CLIENT_MESSAGE;
        event.format = 32;
        event.window = window;
        event.type = atom(type);
        for (size_t i = 0; i < data.size(); ++i)
            event.data.data32[i] = data[i];
        xcb_send_event(m_connection, false, m_root,
                       XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                       reinterpret_cast<const char *>(&event));
    }

private:
    WindowQuery sendQuery(xcb_window_t window) const;
    std::optional<WindowFacts> readQuery(const WindowQuery &query) const;

    xcb_connection_t *m_connection = nullptr;
    xcb_window_t m_root = XCB_NONE;
    std::array<xcb_atom_t, AtomCount> m_atoms{};
};

WindowQuery X11WindowSystem::Connection::sendQuery(xcb_window_t window) const
{
    const Connection &x = *this;
    xcb_connection_t *c = m_connection;
    WindowQuery query;
    query.window = window;
    query.attributes = xcb_get_window_attributes(c, window);
    query.geometry = xcb_get_geometry(c, window);
    query.position = xcb_translate_coordinates(c, window, x.root(), 0, 0);
    query.pid = x.property(window, x.atom(NetWmPid), XCB_ATOM_CARDINAL, 1);
    query.windowClass = x.property(window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 256);
    query.type = x.property(window, x.atom(NetWmWindowType), XCB_ATOM_ATOM);
    query.transientFor = x.property(window, XCB_ATOM_WM_TRANSIENT_FOR, XCB_ATOM_WINDOW, 1);
    query.state = x.property(window, x.atom(NetWmState), XCB_ATOM_ATOM);
    query.frameExtents = x.property(window, x.atom(NetFrameExtents), XCB_ATOM_CARDINAL, 4);
    query.gtkFrameExtents = x.property(window, x.atom(GtkFrameExtents), XCB_ATOM_CARDINAL, 4);
    return query;
}

// Nothing when the window no longer exists. Every reply is collected, so none is left queued.
std::optional<WindowFacts> X11WindowSystem::Connection::readQuery(const WindowQuery &query) const
{
    const Connection &x = *this;
    xcb_connection_t *c = m_connection;
    Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(c, query.attributes, nullptr));
    Reply<xcb_get_geometry_reply_t> geometry(xcb_get_geometry_reply(c, query.geometry, nullptr));
    Reply<xcb_translate_coordinates_reply_t> position(
        xcb_translate_coordinates_reply(c, query.position, nullptr));
    const auto pid = x.propertyReply(query.pid);
    const auto windowClass = x.propertyReply(query.windowClass);
    const auto type = x.propertyReply(query.type);
    const auto transientFor = x.propertyReply(query.transientFor);
    const auto state = x.propertyReply(query.state);
    const auto frameExtents = x.propertyReply(query.frameExtents);
    const auto gtkFrameExtents = x.propertyReply(query.gtkFrameExtents);
    if (!attributes || !geometry || !position)
        return std::nullopt;

    WindowFacts facts;
    facts.window.id = query.window;
    if (const QList<quint32> values = cardinals(pid.get()); !values.isEmpty())
        facts.window.pid = values.first();
    if (windowClass && windowClass->format == 8) {
        // WM_CLASS is two NUL-terminated strings: instance, then class.
        const QByteArray bytes(static_cast<const char *>(xcb_get_property_value(windowClass.get())),
                               xcb_get_property_value_length(windowClass.get()));
        const QList<QByteArray> parts = bytes.split('\0');
        facts.window.windowInstance = QString::fromLocal8Bit(parts.value(0));
        facts.window.windowClass = QString::fromLocal8Bit(parts.value(1));
    }

    const QList<quint32> types = cardinals(type.get());
    const bool transient = !cardinals(transientFor.get()).isEmpty();
    facts.normal = types.contains(x.atom(NetWmWindowTypeNormal)) || (types.isEmpty() && !transient);
    facts.visible = attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
                    !cardinals(state.get()).contains(x.atom(NetWmStateHidden));

    // The client's own rectangle, grown by its border and the decorations the window manager
    // adds, less the invisible shadow that client-side decorated windows draw around themselves.
    const int border = geometry->border_width;
    const auto [left, right, top, bottom] = extents(frameExtents.get());
    const auto [shadowLeft, shadowRight, shadowTop, shadowBottom] = extents(gtkFrameExtents.get());
    const QRect native(position->dst_x - border - left + shadowLeft,
                       position->dst_y - border - top + shadowTop,
                       geometry->width + 2 * border + left + right - shadowLeft - shadowRight,
                       geometry->height + 2 * border + top + bottom - shadowTop - shadowBottom);
    facts.window.frame = toLogical(native);
    return facts;
}

QList<WindowFacts> X11WindowSystem::Connection::describe(const QList<quint32> &windows) const
{
    std::vector<WindowQuery> queries;
    queries.reserve(windows.size());
    for (const quint32 window : windows)
        queries.push_back(sendQuery(window));
    QList<WindowFacts> result;
    for (const WindowQuery &query : queries) {
        if (std::optional<WindowFacts> facts = readQuery(query))
            result.append(*facts);
    }
    return result;
}

X11WindowSystem::X11WindowSystem() = default;
X11WindowSystem::~X11WindowSystem() = default;

int X11WindowSystem::screenNumber(const QString &displayName)
{
    static const QRegularExpression pattern(QStringLiteral(u":\\d+\\.(\\d+)$"));
    const QRegularExpressionMatch match = pattern.match(displayName);
    return match.hasMatch() ? match.captured(1).toInt() : 0;
}

X11WindowSystem::Connection *X11WindowSystem::connection() const
{
    if (m_connection)
        return xcb_connection_has_error(m_connection->get()) ? nullptr : m_connection.get();
    xcb_connection_t *x11 = qtX11Connection();
    if (x11 == nullptr)
        return nullptr;
    m_connection = std::make_unique<Connection>(x11, screenNumber(qEnvironmentVariable("DISPLAY")));
    return m_connection.get();
}

bool X11WindowSystem::isAvailable() const
{
    return connection() != nullptr;
}

QList<TopLevelWindow> X11WindowSystem::topLevelWindows() const
{
    const Connection *x = connection();
    if (x == nullptr)
        return {};
    // The stacking list runs bottom to top.
    QList<quint32> stacking = x->rootCardinals(NetClientListStacking, XCB_ATOM_WINDOW);
    std::reverse(stacking.begin(), stacking.end());
    const qint64 ownPid = QCoreApplication::applicationPid();
    QList<TopLevelWindow> windows;
    for (const WindowFacts &facts : x->describe(stacking)) {
        if (facts.normal && facts.visible && facts.window.pid != ownPid)
            windows.append(facts.window);
    }
    return windows;
}

std::optional<TopLevelWindow> X11WindowSystem::activeWindow() const
{
    const Connection *x = connection();
    if (x == nullptr)
        return std::nullopt;
    const QList<quint32> active = x->rootCardinals(NetActiveWindow, XCB_ATOM_WINDOW);
    if (active.isEmpty() || active.first() == XCB_NONE)
        return std::nullopt;
    const QList<WindowFacts> facts = x->describe({active.first()});
    if (facts.isEmpty())
        return std::nullopt;
    return facts.first().window;
}

bool X11WindowSystem::activateWindow(quint64 windowId)
{
    const Connection *x = connection();
    if (x == nullptr || windowId == XCB_NONE || windowId > std::numeric_limits<xcb_window_t>::max())
        return false;
    const auto window = xcb_window_t(windowId);
    Reply<xcb_get_window_attributes_reply_t> attributes(
        xcb_get_window_attributes_reply(x->get(), xcb_get_window_attributes(x->get(), window), nullptr));
    if (!attributes)
        return false;
    x->sendToRoot(window, NetActiveWindow, {SourcePager, XCB_CURRENT_TIME, XCB_NONE});
    x->sendToRoot(window, NetRestackWindow, {SourcePager, XCB_NONE, XCB_STACK_MODE_ABOVE});
    xcb_flush(x->get());
    return true;
}

bool X11WindowSystem::activateOwnWindow(QWindow *window, const QString &activationToken)
{
    Q_UNUSED(activationToken);
    return window != nullptr && activateWindow(window->winId());
}

bool X11WindowSystem::activateApplication(qint64 pid)
{
    return activateFrontWindowOf(pid);
}

QString X11WindowSystem::executableName(qint64 pid) const
{
    return processExecutableName(pid);
}

bool X11WindowSystem::compositorRunning() const
{
    const Connection *x = connection();
    if (x == nullptr)
        return false;
    Reply<xcb_get_selection_owner_reply_t> owner(xcb_get_selection_owner_reply(
        x->get(), xcb_get_selection_owner(x->get(), x->atom(NetWmCmOwner)), nullptr));
    return owner && owner->owner != XCB_NONE;
}

QList<ScreenArea> X11WindowSystem::screens() const
{
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()) == nullptr)
        return {};
    // The window manager's work area is read fresh rather than through
    // QScreen::availableGeometry, which only changes once Qt has processed the property
    // change: a panel that reserved its space a moment ago is already respected.
    std::optional<QRect> workArea;
    if (const Connection *x = connection()) {
        const QList<quint32> desktop = x->rootCardinals(NetCurrentDesktop, XCB_ATOM_CARDINAL);
        const QList<quint32> areas = x->rootCardinals(NetWorkarea, XCB_ATOM_CARDINAL);
        const qsizetype first = 4 * qsizetype(desktop.value(0, 0));
        if (first + 4 <= areas.size())
            workArea =
                QRect(int(areas[first]), int(areas[first + 1]), int(areas[first + 2]), int(areas[first + 3]));
    }
    QList<ScreenArea> result;
    for (const QScreen *screen : QGuiApplication::screens()) {
        ScreenArea area{screen->geometry(), screen->availableGeometry()};
        // EWMH has one work area for the whole desktop; each screen gets its share of it.
        if (workArea) {
            const QRect shared = workArea->intersected(nativeGeometry(screen));
            if (!shared.isEmpty())
                area.workArea = toLogical(shared, screen);
        }
        result.append(area);
    }
    return result;
}

int X11WindowSystem::primaryScreenIndex() const
{
    if (qobject_cast<QGuiApplication *>(QCoreApplication::instance()) == nullptr)
        return -1;
    return int(QGuiApplication::screens().indexOf(QGuiApplication::primaryScreen()));
}
