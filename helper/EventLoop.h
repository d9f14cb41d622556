#pragma once

#include "platform/EventSource.h"

#include <functional>
#include <vector>

// tarvel-edit's event loop: one poll() over the sources' descriptors, woken early by the
// nearest deadline. Single-threaded; sources may be added, removed or the loop ended from
// inside a dispatch.
class EventLoop final {
public:
    void add(EventSource &source);
    void remove(EventSource &source);

    // Dispatches until quit(); returns at once when quit() came first. Throws HelperError when
    // the system refuses to wait.
    void run();
    void quit() { m_quit = true; }

private:
    bool contains(const EventSource *source) const;

    std::vector<EventSource *> m_sources;
    bool m_quit = false;
};

// A single-shot timer for the loop.
class Timer final : public EventSource {
public:
    explicit Timer(std::function<void()> timeout)
        : m_timeout(std::move(timeout))
    {
    }

    void start(Clock::duration interval) { m_deadline = Clock::now() + interval; }
    void stop() { m_deadline.reset(); }

    int descriptor() const override { return -1; }
    std::optional<Clock::time_point> deadline() const override { return m_deadline; }
    void dispatch() override;

private:
    std::function<void()> m_timeout;
    std::optional<Clock::time_point> m_deadline;
};
