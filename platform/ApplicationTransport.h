#pragma once

#include "platform/EventSource.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

// The application (terminal) on whose behalf tarvel-edit runs.
struct SourceApplication {
    std::optional<std::string> identifier;
    std::optional<std::int32_t> pid;
};

// How tarvel-edit reaches the Tarvel application on this system, without Qt: telling it that a
// request is waiting, seeing whether it runs and when it starts or quits, starting it, and
// naming the terminal a request comes from. Linux: the session bus; the Mac: the distributed
// notification centre and the workspace.
class ApplicationTransport : public EventSource {
public:
    struct Outcome {
        bool started = false;
        // Why nothing was started, as a short phrase ("no display", "Tarvel is not installed").
        std::string reason;
    };
    // Called from dispatch().
    struct Callbacks {
        std::function<void()> applicationDidLaunch;
        std::function<void()> applicationDidTerminate;
    };

    // False when applications cannot be reached or seen at all (on Linux: no session bus). A
    // connection may turn out to be useless only at its first answer: ask after isRunning().
    virtual bool canReachApplications() = 0;
    virtual bool isRunning() = 0;
    // The request notification; fire and forget, false when it could not be sent.
    virtual bool postRequestCreated() = 0;
    // Starts the application detached from the caller: its own session, no terminal.
    // TARVEL_APP_PATH first, otherwise the platform's usual ways.
    virtual Outcome launchApplication() = 0;
    // Cheap: a few reads of process metadata. Absent fields when it cannot be told.
    virtual SourceApplication sourceApplication() const = 0;

    // Launches and terminations are reported from the first call of the methods above on (a
    // connection may be made only then), so a start that races with isRunning() is never missed.
    static std::unique_ptr<ApplicationTransport> create(Callbacks callbacks);
};
