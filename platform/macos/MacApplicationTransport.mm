#include "platform/ApplicationTransport.h"

#include "core/ExchangeNames.h"
#include "platform/DetachedProcess.h"

#import <AppKit/AppKit.h>
#include <CoreFoundation/CoreFoundation.h>

#include <cstdlib>
#include <sys/event.h>
#include <sys/sysctl.h>
#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds kLaunchPollingInterval{100};

NSString *bundleIdentifier()
{
    return [NSString stringWithUTF8String:ExchangeNames::bundleIdentifier];
}

std::string homeFolder()
{
    const char *home = std::getenv("HOME");
    return home && *home ? std::string(home) : std::string("/");
}

pid_t parentOf(pid_t pid)
{
    kinfo_proc info{};
    size_t size = sizeof(info);
    int query[] = {CTL_KERN, KERN_PROC, KERN_PROC_PID, pid};
    if (sysctl(query, 4, &info, &size, nullptr, 0) != 0 || size == 0)
        return -1;
    return info.kp_eproc.e_ppid;
}

// The distributed notification centre, the workspace's list of running applications and
// LaunchServices (through open(1)). The workspace reports launches only to a running main run
// loop, which tarvel-edit does not have: while the application runs, a kqueue waits for its
// process to exit; while it does not, the list is asked again ten times a second (only for the
// few seconds tarvel-edit waits for a start).
class MacApplicationTransport final : public ApplicationTransport {
public:
    explicit MacApplicationTransport(Callbacks callbacks)
        : m_callbacks(std::move(callbacks))
        , m_queue(::kqueue())
    {
        follow(runningPid());
    }

    ~MacApplicationTransport() override
    {
        if (m_queue >= 0)
            ::close(m_queue);
    }

    // The distributed centre is always there in a user's session.
    bool canReachApplications() override { return true; }

    bool isRunning() override { return runningPid() > 0; }

    bool postRequestCreated() override
    {
        CFStringRef name = CFStringCreateWithCString(kCFAllocatorDefault, ExchangeNames::requestNotification,
                                                     kCFStringEncodingUTF8);
        CFNotificationCenterPostNotification(CFNotificationCenterGetDistributedCenter(), name, nullptr,
                                             nullptr, true);
        CFRelease(name);
        return true;
    }

    Outcome launchApplication() override
    {
        const char *configured = std::getenv("TARVEL_APP_PATH");
        if (configured && *configured) {
            const std::string path = configured;
            if (::access(path.c_str(), F_OK) != 0)
                return {false, "TARVEL_APP_PATH does not exist"};
            // A bare executable (a development build) is started like any program.
            if (!path.ends_with(".app"))
                return started(DetachedProcess::start(path, {}, homeFolder()), path);
            return openInBackground(path);
        }
        @autoreleasepool {
            NSURL *application =
                [NSWorkspace.sharedWorkspace URLForApplicationWithBundleIdentifier:bundleIdentifier()];
            if (!application)
                return {false, "Tarvel is not installed"};
            return openInBackground(application.path.UTF8String);
        }
    }

    SourceApplication sourceApplication() const override
    {
        // LaunchServices sets this for every process started from an application bundle, and the
        // shell in a terminal window inherits it.
        const char *variable = std::getenv("__CFBundleIdentifier");
        if (!variable || !*variable)
            return {};
        const std::string identifier = variable;
        @autoreleasepool {
            NSArray<NSRunningApplication *> *candidates = [NSRunningApplication
                runningApplicationsWithBundleIdentifier:[NSString stringWithUTF8String:variable]];
            // The copy of the terminal that is one of our ancestors, else any copy.
            for (pid_t ancestor = ::getppid(); ancestor > 1; ancestor = parentOf(ancestor)) {
                for (NSRunningApplication *candidate in candidates) {
                    if (candidate.processIdentifier == ancestor)
                        return {identifier, std::int32_t(ancestor)};
                }
            }
            if (candidates.count > 0)
                return {identifier, std::int32_t(candidates.firstObject.processIdentifier)};
        }
        return {identifier, std::nullopt};
    }

    int descriptor() const override { return m_queue; }

    std::optional<Clock::time_point> deadline() const override
    {
        if (m_pid > 0)
            return std::nullopt;
        return m_lastLook + kLaunchPollingInterval;
    }

    void dispatch() override
    {
        bool exited = false;
        struct kevent event {};
        const timespec noWait{};
        while (m_queue >= 0 && ::kevent(m_queue, nullptr, 0, &event, 1, &noWait) > 0)
            exited = exited || (event.filter == EVFILT_PROC && pid_t(event.ident) == m_pid);
        m_lastLook = Clock::now();
        pid_t current = runningPid();
        // The workspace's list may not have caught up with the exit yet.
        if (exited && current == m_pid)
            current = 0;
        if (current == m_pid)
            return;
        const pid_t previous = m_pid;
        follow(current);
        if (previous > 0 && m_callbacks.applicationDidTerminate)
            m_callbacks.applicationDidTerminate();
        if (m_pid > 0 && m_callbacks.applicationDidLaunch)
            m_callbacks.applicationDidLaunch();
    }

private:
    static pid_t runningPid()
    {
        @autoreleasepool {
            NSArray<NSRunningApplication *> *running =
                [NSRunningApplication runningApplicationsWithBundleIdentifier:bundleIdentifier()];
            return running.count > 0 ? running.firstObject.processIdentifier : 0;
        }
    }

    // Waits for pid's exit; a process already gone counts as not running.
    void follow(pid_t pid)
    {
        m_pid = 0;
        if (pid <= 0 || m_queue < 0)
            return;
        struct kevent change {};
        EV_SET(&change, uintptr_t(pid), EVFILT_PROC, EV_ADD | EV_ONESHOT, NOTE_EXIT, 0, nullptr);
        if (::kevent(m_queue, &change, 1, nullptr, 0, nullptr) == 0)
            m_pid = pid;
    }

    // In the background: the composer activates itself when it opens.
    static Outcome openInBackground(const std::string &application)
    {
        return started(DetachedProcess::start("/usr/bin/open", {"-g", application}, homeFolder()),
                       application);
    }

    static Outcome started(int error, const std::string &program)
    {
        return error == 0 ? Outcome{true, {}} : Outcome{false, "could not start " + program};
    }

    Callbacks m_callbacks;
    int m_queue = -1;
    pid_t m_pid = 0;
    Clock::time_point m_lastLook = Clock::now();
};

} // namespace

std::unique_ptr<ApplicationTransport> ApplicationTransport::create(Callbacks callbacks)
{
    return std::make_unique<MacApplicationTransport>(std::move(callbacks));
}
