#pragma once

#include <chrono>
#include <optional>

#include <poll.h>

// Something tarvel-edit's event loop waits for: a descriptor becoming ready, a moment passing, or
// both. The loop asks all three questions again before every wait, since the answers change (a
// bus connection wants to write only while it has something queued). Plain C++: tarvel-edit
// does not load Qt.
class EventSource {
public:
    using Clock = std::chrono::steady_clock;

    virtual ~EventSource() = default;

    // The descriptor to wait on, or -1 for none.
    virtual int descriptor() const = 0;
    // What to wait for on it, as poll() flags.
    virtual short events() const { return POLLIN; }
    // When to be dispatched even if the descriptor stays quiet.
    virtual std::optional<Clock::time_point> deadline() const { return std::nullopt; }
    // The descriptor became ready or the deadline passed.
    virtual void dispatch() = 0;
};
