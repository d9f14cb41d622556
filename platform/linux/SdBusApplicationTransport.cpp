#include "platform/ApplicationTransport.h"

#include "core/ExchangeNames.h"
#include "platform/DetachedProcess.h"
#include "platform/ExecutablePath.h"
#include "platform/linux/DBusNames.h"
#include "platform/linux/SdBusLibrary.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <string_view>
#include <unistd.h>

namespace {

constexpr char kBusService[] = "org.freedesktop.DBus";
constexpr char kBusPath[] = "/org/freedesktop/DBus";
constexpr char kBusInterface[] = "org.freedesktop.DBus";
// A bus that takes longer than this to answer one call is as good as absent.
constexpr std::uint64_t kCallTimeoutMicroseconds = 5'000'000;

std::string environment(const char *name)
{
    const char *value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

std::string folderOf(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

// An explicit Qt platform (offscreen, vnc, ...) needs no display server.
bool hasDisplay()
{
    return !environment("DISPLAY").empty() || !environment("WAYLAND_DISPLAY").empty() ||
           !environment("QT_QPA_PLATFORM").empty();
}

std::string readProcFile(pid_t pid, const char *name)
{
    const std::string path = "/proc/" + std::to_string(pid) + '/' + name;
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return {};
    std::string contents;
    char buffer[1024];
    ssize_t count = 0;
    while ((count = ::read(descriptor, buffer, sizeof buffer)) > 0)
        contents.append(buffer, std::size_t(count));
    ::close(descriptor);
    return contents;
}

pid_t parentOf(pid_t pid)
{
    // "pid (comm) state ppid ...": comm may hold spaces and parentheses, so read from the last
    // closing parenthesis.
    const std::string stat = readProcFile(pid, "stat");
    const std::size_t close = stat.rfind(')');
    if (close == std::string::npos || close + 4 >= stat.size())
        return -1;
    const char *fields = stat.c_str() + close + 2; // "state ppid ..."
    const char *parent = std::strchr(fields, ' ');
    if (!parent)
        return -1;
    char *end = nullptr;
    const long value = std::strtol(parent + 1, &end, 10);
    return end != parent + 1 ? pid_t(value) : -1;
}

std::optional<std::string> executableName(pid_t pid)
{
    const std::string link = "/proc/" + std::to_string(pid) + "/exe";
    char target[4096];
    const ssize_t length = ::readlink(link.c_str(), target, sizeof target);
    if (length > 0 && std::size_t(length) < sizeof target) {
        std::string path(target, std::size_t(length));
        constexpr std::string_view deleted = " (deleted)";
        if (path.size() > deleted.size() && path.ends_with(deleted))
            path.resize(path.size() - deleted.size());
        return path.substr(path.rfind('/') + 1);
    }
    // Another user's process hides its executable; its command name is still public.
    std::string comm = readProcFile(pid, "comm");
    while (!comm.empty() && (comm.back() == '\n' || comm.back() == ' '))
        comm.pop_back();
    return comm.empty() ? std::nullopt : std::optional<std::string>(std::move(comm));
}

// The session bus through sd-bus: the application is running while some connection owns its
// name, and the request notification is its Posted signal. The connection is made at the first
// call, which comes after the request is written.
class SdBusApplicationTransport final : public ApplicationTransport {
public:
    explicit SdBusApplicationTransport(Callbacks callbacks)
        : m_callbacks(std::move(callbacks))
    {
    }

    ~SdBusApplicationTransport() override { disconnect(); }

    bool canReachApplications() override { return connection() != nullptr; }

    bool isRunning() override
    {
        sd_bus *bus = connection();
        if (!bus)
            return false;
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_message *reply = nullptr;
        int owned = 0;
        const int called = m_sd->sd_bus_call_method(bus, kBusService, kBusPath, kBusInterface, "NameHasOwner",
                                                    &error, &reply, "s", DBusNames::serviceName);
        const bool answered = called >= 0 && m_sd->sd_bus_message_read(reply, "b", &owned) >= 0;
        m_sd->sd_bus_message_unref(reply);
        m_sd->sd_bus_error_free(&error);
        // The bus answers this for any name, so a failure means the connection is useless (the
        // handshake failed, the bus hung): as good as no bus.
        if (called < 0)
            disconnect();
        return answered && owned;
    }

    bool postRequestCreated() override
    {
        // Posted(s name, a{ss} userInfo), with no user information for a request. Flushed at
        // once: the helper may have nothing else to say on the bus for a long while.
        sd_bus *bus = connection();
        return bus &&
               m_sd->sd_bus_emit_signal(bus, DBusNames::objectPath, DBusNames::interfaceName,
                                        DBusNames::postedSignal, "sa{ss}", ExchangeNames::requestNotification,
                                        0) >= 0 &&
               m_sd->sd_bus_flush(bus) >= 0;
    }

    Outcome launchApplication() override
    {
        if (!hasDisplay())
            return {false, "no display"};

        std::string program = environment("TARVEL_APP_PATH");
        if (!program.empty()) {
            if (!ExecutablePath::isExecutableFile(program))
                return {false, "TARVEL_APP_PATH is not an executable file"};
        } else if (startThroughBus()) {
            return {true, {}};
        } else {
            // Installed side by side, or anywhere on PATH.
            const std::string beside = folderOf(ExecutablePath::ofThisProcess()) + "/tarvel";
            program =
                ExecutablePath::isExecutableFile(beside) ? beside : ExecutablePath::findOnPath("tarvel");
            if (program.empty())
                return {false, "Tarvel is not installed"};
        }

        std::string home = environment("HOME");
        if (home.empty())
            home = "/";
        if (DetachedProcess::start(program, {}, home) != 0)
            return {false, "could not start " + program};
        return {true, {}};
    }

    SourceApplication sourceApplication() const override
    {
        // The shell is the session leader; the terminal emulator started it.
        const pid_t leader = ::getsid(0);
        if (leader <= 0)
            return {};
        const pid_t terminal = parentOf(leader);
        if (terminal <= 1)
            return {};
        return {executableName(terminal), std::int32_t(terminal)};
    }

    int descriptor() const override { return m_bus ? m_sd->sd_bus_get_fd(m_bus) : -1; }

    short events() const override
    {
        const int events = m_bus ? m_sd->sd_bus_get_events(m_bus) : 0;
        return events > 0 ? short(events) : short(0);
    }

    std::optional<Clock::time_point> deadline() const override
    {
        std::uint64_t microseconds = 0;
        if (!m_bus || m_sd->sd_bus_get_timeout(m_bus, &microseconds) < 0 || microseconds == UINT64_MAX)
            return std::nullopt;
        // Absolute on CLOCK_MONOTONIC, which is what steady_clock reads on Linux.
        return Clock::time_point(std::chrono::microseconds(microseconds));
    }

    void dispatch() override
    {
        if (!m_bus)
            return;
        int processed = 0;
        while (m_bus && (processed = m_sd->sd_bus_process(m_bus, nullptr)) > 0) {
        }
        // The bus went away: nothing more will come from it.
        if (processed < 0)
            disconnect();
    }

private:
    // The connection, made on the first call; null when there is no usable bus.
    sd_bus *connection()
    {
        if (m_attempted)
            return m_bus;
        m_attempted = true;
        m_sd = SdBusLibrary::load();
        if (!m_sd || m_sd->sd_bus_open_user(&m_bus) < 0) {
            m_bus = nullptr;
            return nullptr;
        }
        m_sd->sd_bus_set_method_call_timeout(m_bus, kCallTimeoutMicroseconds);
        // Queued with whatever follows, not awaited: the bus handles one connection's messages
        // in order, so the rule is in place before any later call is answered, and an
        // isRunning() that follows sees every change.
        const std::string rule = std::string("type='signal',sender='") + kBusService + "',path='" + kBusPath +
                                 "',interface='" + kBusInterface + "',member='NameOwnerChanged',arg0='" +
                                 DBusNames::serviceName + "'";
        if (m_sd->sd_bus_add_match_async(m_bus, &m_ownerMatch, rule.c_str(),
                                         &SdBusApplicationTransport::ownerChanged,
                                         &SdBusApplicationTransport::matchInstalled, this) < 0)
            disconnect();
        return m_bus;
    }

    void disconnect()
    {
        if (!m_sd)
            return;
        m_ownerMatch = m_sd->sd_bus_slot_unref(m_ownerMatch);
        m_bus = m_sd->sd_bus_close_unref(m_bus);
    }

    static int ownerChanged(sd_bus_message *message, void *userData, sd_bus_error *)
    {
        auto *self = static_cast<SdBusApplicationTransport *>(userData);
        const char *name = nullptr;
        const char *oldOwner = nullptr;
        const char *newOwner = nullptr;
        if (self->m_sd->sd_bus_message_read(message, "sss", &name, &oldOwner, &newOwner) < 0)
            return 0;
        // A change of owner is a termination followed by a launch.
        if (oldOwner && *oldOwner && self->m_callbacks.applicationDidTerminate)
            self->m_callbacks.applicationDidTerminate();
        if (newOwner && *newOwner && self->m_callbacks.applicationDidLaunch)
            self->m_callbacks.applicationDidLaunch();
        return 0;
    }

    // Without the rule, launches and terminations would go unseen.
    static int matchInstalled(sd_bus_message *reply, void *userData, sd_bus_error *)
    {
        auto *self = static_cast<SdBusApplicationTransport *>(userData);
        if (self->m_sd->sd_bus_message_is_method_error(reply, nullptr))
            self->disconnect();
        return 0;
    }

    // An installed Tarvel has a service file, and the bus starts it: one copy, however many
    // helpers ask at once. The started copy needs this terminal's display, which a bus begun
    // before the desktop may not have in its activation environment yet.
    bool startThroughBus()
    {
        sd_bus *bus = connection();
        if (!bus || !isActivatable())
            return false;

        sd_bus_message *update = nullptr;
        bool built = m_sd->sd_bus_message_new_method_call(bus, &update, kBusService, kBusPath, kBusInterface,
                                                          "UpdateActivationEnvironment") >= 0 &&
                     m_sd->sd_bus_message_open_container(update, 'a', "{ss}") >= 0;
        bool any = false;
        for (const char *name : {"DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY"}) {
            const char *value = std::getenv(name);
            if (built && value) {
                built = m_sd->sd_bus_message_append(update, "{ss}", name, value) >= 0;
                any = true;
            }
        }
        built = built && m_sd->sd_bus_message_close_container(update) >= 0;
        if (built && any) {
            sd_bus_error error = SD_BUS_ERROR_NULL;
            m_sd->sd_bus_call(bus, update, 0, &error, nullptr);
            m_sd->sd_bus_error_free(&error);
        }
        m_sd->sd_bus_message_unref(update);

        // The reply comes once the application owns its name; the owner watch sees that itself.
        return m_sd->sd_bus_call_method_async(bus, nullptr, kBusService, kBusPath, kBusInterface,
                                              "StartServiceByName", &SdBusApplicationTransport::ignoreReply,
                                              nullptr, "su", DBusNames::serviceName, 0u) >= 0 &&
               m_sd->sd_bus_flush(bus) >= 0;
    }

    bool isActivatable()
    {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_message *reply = nullptr;
        bool found = false;
        if (m_sd->sd_bus_call_method(m_bus, kBusService, kBusPath, kBusInterface, "ListActivatableNames",
                                     &error, &reply, "") >= 0 &&
            m_sd->sd_bus_message_enter_container(reply, 'a', "s") >= 0) {
            const char *name = nullptr;
            while (!found && m_sd->sd_bus_message_read(reply, "s", &name) > 0)
                found = std::strcmp(name, DBusNames::serviceName) == 0;
        }
        m_sd->sd_bus_message_unref(reply);
        m_sd->sd_bus_error_free(&error);
        return found;
    }

    static int ignoreReply(sd_bus_message *, void *, sd_bus_error *) { return 0; }

    Callbacks m_callbacks;
    const SdBusLibrary *m_sd = nullptr;
    bool m_attempted = false;
    sd_bus *m_bus = nullptr;
    sd_bus_slot *m_ownerMatch = nullptr;
};

} // namespace

std::unique_ptr<ApplicationTransport> ApplicationTransport::create(Callbacks callbacks)
{
    return std::make_unique<SdBusApplicationTransport>(std::move(callbacks));
}
