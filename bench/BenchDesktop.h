#pragma once

// What the desktop benchmarks share: an X connection that watches windows appear and types and
// clicks through XTEST, a quick way to start a program, and a process's wake-ups.
#include <QByteArray>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSettings>
#include <QTemporaryDir>
#include <QThread>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include <poll.h>
#include <spawn.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <iterator>
#include <utility>

extern char **environ;

namespace bench {

// Context switches of every thread of the process: each is a wake-up.
inline long long wakeUps(qint64 pid)
{
    long long total = 0;
    const QDir tasks(QStringLiteral("/proc/%1/task").arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile status(tasks.filePath(task) + QStringLiteral("/status"));
        if (!status.open(QIODevice::ReadOnly))
            continue;
        for (const QByteArray &line : status.readAll().split('\n')) {
            if (line.startsWith("voluntary_ctxt_switches") || line.startsWith("nonvoluntary_ctxt_switches"))
                total += line.mid(line.indexOf(':') + 1).trimmed().toLongLong();
        }
    }
    return total;
}

class Display final {
public:
    Display()
        : m_connection(xcb_connect(nullptr, nullptr))
    {
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        const uint32_t mask = XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_change_window_attributes(m_connection, m_root, XCB_CW_EVENT_MASK, &mask);
        m_clientList = atom("_NET_CLIENT_LIST");
        m_activeWindow = atom("_NET_ACTIVE_WINDOW");
        m_name = atom("_NET_WM_NAME");
        m_utf8 = atom("UTF8_STRING");
        m_keySymbols = xcb_key_symbols_alloc(m_connection);
        xcb_flush(m_connection);
    }
    ~Display()
    {
        xcb_key_symbols_free(m_keySymbols);
        xcb_disconnect(m_connection);
    }

    bool ok() const { return !xcb_connection_has_error(m_connection); }

    bool composerMapped() { return windowMapped("Tarvel Composer"); }

    // A visible window whose title starts with the prefix.
    bool windowMapped(const QByteArray &prefix)
    {
        auto *reply = xcb_get_property_reply(
            m_connection, xcb_get_property(m_connection, 0, m_root, m_clientList, XCB_ATOM_WINDOW, 0, 4096),
            nullptr);
        if (!reply)
            return false;
        const auto *windows = static_cast<const xcb_window_t *>(xcb_get_property_value(reply));
        const int count = xcb_get_property_value_length(reply) / 4;
        bool found = false;
        for (int i = 0; i < count && !found; ++i)
            found = title(windows[i]).startsWith(prefix) && viewable(windows[i]);
        free(reply);
        return found;
    }

    // The window the window manager has given the focus to is mapped and its title holds the
    // text: the editor is on screen and takes keys. Its own title changes and mapping wake
    // waitUntil() too, as the root window's events do.
    bool activeWindowTitled(const QByteArray &part)
    {
        auto *reply = xcb_get_property_reply(
            m_connection, xcb_get_property(m_connection, 0, m_root, m_activeWindow, XCB_ATOM_WINDOW, 0, 1),
            nullptr);
        xcb_window_t window = 0;
        if (reply && xcb_get_property_value_length(reply) == 4)
            window = *static_cast<const xcb_window_t *>(xcb_get_property_value(reply));
        free(reply);
        if (window == 0)
            return false;
        if (window != m_watchedWindow) {
            const uint32_t mask = XCB_EVENT_MASK_STRUCTURE_NOTIFY | XCB_EVENT_MASK_PROPERTY_CHANGE;
            xcb_change_window_attributes(m_connection, window, XCB_CW_EVENT_MASK, &mask);
            xcb_flush(m_connection);
            m_watchedWindow = window;
        }
        return title(window).contains(part) && viewable(window);
    }

    // Types printable ASCII, with Shift where the key needs it.
    void type(const QByteArray &text)
    {
        for (const char character : text) {
            const xcb_keysym_t symbol = static_cast<unsigned char>(character);
            const xcb_keycode_t code = firstKeycode(symbol);
            if (xcb_key_symbols_get_keysym(m_keySymbols, code, 0) != symbol)
                press({kShift, symbol});
            else
                press({symbol});
        }
    }

    // Waits for X events until the predicate holds or the time is up.
    template<typename Predicate> bool waitUntil(Predicate predicate, int timeoutMs)
    {
        QElapsedTimer timer;
        timer.start();
        while (!predicate()) {
            const int left = timeoutMs - int(timer.elapsed());
            if (left <= 0)
                return false;
            // Events read along with the predicate's replies wait in xcb's queue, where poll() does
            // not see them: drain it first, and only sleep on the socket when it was empty.
            bool queued = false;
            while (xcb_generic_event_t *event = xcb_poll_for_queued_event(m_connection)) {
                queued = true;
                free(event);
            }
            if (queued)
                continue;
            pollfd descriptor{xcb_get_file_descriptor(m_connection), POLLIN, 0};
            ::poll(&descriptor, 1, left);
            while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection))
                free(event);
        }
        return true;
    }

    void pressCtrlReturn() { press({kControl, kReturn}); }

    // The keys pressed in order, then released in reverse.
    void press(std::initializer_list<xcb_keysym_t> symbols)
    {
        for (const xcb_keysym_t symbol : symbols)
            fakeKey(XCB_KEY_PRESS, symbol);
        for (auto it = std::rbegin(symbols); it != std::rend(symbols); ++it)
            fakeKey(XCB_KEY_RELEASE, *it);
        xcb_flush(m_connection);
    }

    void click(int x, int y)
    {
        xcb_test_fake_input(m_connection, XCB_MOTION_NOTIFY, 0, XCB_CURRENT_TIME, m_root, int16_t(x),
                            int16_t(y), 0);
        xcb_test_fake_input(m_connection, XCB_BUTTON_PRESS, 1, XCB_CURRENT_TIME, m_root, 0, 0, 0);
        xcb_test_fake_input(m_connection, XCB_BUTTON_RELEASE, 1, XCB_CURRENT_TIME, m_root, 0, 0, 0);
        xcb_flush(m_connection);
    }

    static constexpr xcb_keysym_t kControl = 0xffe3, kShift = 0xffe1, kReturn = 0xff0d, kEscape = 0xff1b,
                                  kDown = 0xff54, kW = 0x77;

private:
    void fakeKey(uint8_t type, xcb_keysym_t symbol)
    {
        xcb_test_fake_input(m_connection, type, firstKeycode(symbol), XCB_CURRENT_TIME, m_root, 0, 0, 0);
    }

    xcb_atom_t atom(const char *name)
    {
        auto *reply = xcb_intern_atom_reply(
            m_connection, xcb_intern_atom(m_connection, 0, uint16_t(strlen(name)), name), nullptr);
        const xcb_atom_t result = reply ? reply->atom : xcb_atom_t(XCB_ATOM_NONE);
        free(reply);
        return result;
    }
    // _NET_WM_NAME, else the older WM_NAME.
    QByteArray title(xcb_window_t window)
    {
        QByteArray result;
        for (const auto &[property, type] :
             {std::pair{m_name, m_utf8},
              std::pair{xcb_atom_t(XCB_ATOM_WM_NAME), xcb_atom_t(XCB_ATOM_STRING)}}) {
            auto *reply = xcb_get_property_reply(
                m_connection, xcb_get_property(m_connection, 0, window, property, type, 0, 256), nullptr);
            if (reply)
                result = QByteArray(static_cast<const char *>(xcb_get_property_value(reply)),
                                    xcb_get_property_value_length(reply));
            free(reply);
            if (!result.isEmpty())
                break;
        }
        return result;
    }
    bool viewable(xcb_window_t window)
    {
        auto *reply = xcb_get_window_attributes_reply(
            m_connection, xcb_get_window_attributes(m_connection, window), nullptr);
        const bool result = reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
        free(reply);
        return result;
    }
    xcb_keycode_t firstKeycode(xcb_keysym_t symbol)
    {
        xcb_keycode_t *codes = xcb_key_symbols_get_keycode(m_keySymbols, symbol);
        const xcb_keycode_t code = codes ? codes[0] : 0;
        free(codes);
        return code;
    }

    xcb_connection_t *m_connection;
    xcb_window_t m_root = 0;
    xcb_atom_t m_clientList = 0, m_activeWindow = 0, m_name = 0, m_utf8 = 0;
    xcb_window_t m_watchedWindow = 0;
    xcb_key_symbols_t *m_keySymbols = nullptr;
};

inline pid_t spawn(const QByteArray &program, const QByteArray &argument)
{
    pid_t pid = 0;
    char *argv[] = {const_cast<char *>(program.constData()), const_cast<char *>(argument.constData()),
                    nullptr};
    return posix_spawn(&pid, program.constData(), nullptr, nullptr, argv, environ) == 0 ? pid : -1;
}

// Starts tarvel with its data and settings in root and waits for it to settle.
// Whether the benchmark runs on an X desktop; says how to run it when not.
inline bool onDesktop(const Display &display, const char *program)
{
    if (!qEnvironmentVariableIsEmpty("DISPLAY") && display.ok())
        return true;
    std::fprintf(stderr, "%s: run it on a desktop (see the comment at the top)\n", program);
    return false;
}

inline bool startApplication(QProcess &app, const QTemporaryDir &root, const QString &path)
{
    qputenv("XDG_DATA_HOME", root.filePath(QStringLiteral("data")).toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", root.filePath(QStringLiteral("config")).toLocal8Bit());
    qputenv("TARVEL_APP_PATH", path.toLocal8Bit());
    // The editor set-up prompt would take the focus from the windows measured.
    QSettings(root.filePath(QStringLiteral("config/Tarvel/Tarvel.conf")), QSettings::IniFormat)
        .setValue(QStringLiteral("EditorIntegrationPromptSuppressed"), true);
    app.setProcessChannelMode(QProcess::ForwardedChannels);
    app.start(path, {});
    if (!app.waitForStarted())
        return false;
    QThread::msleep(2000); // start-up: bus name, tray icon
    return true;
}

} // namespace bench
