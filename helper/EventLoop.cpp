#include "helper/EventLoop.h"

#include "helper/HelperError.h"

#include <algorithm>
#include <cerrno>
#include <climits>

void EventLoop::add(EventSource &source)
{
    if (!contains(&source))
        m_sources.push_back(&source);
}

void EventLoop::remove(EventSource &source)
{
    std::erase(m_sources, &source);
}

bool EventLoop::contains(const EventSource *source) const
{
    return std::find(m_sources.begin(), m_sources.end(), source) != m_sources.end();
}

void EventLoop::run()
{
    using Clock = EventSource::Clock;
    while (!m_quit) {
        const std::vector<EventSource *> sources = m_sources;
        std::vector<pollfd> descriptors;
        std::vector<std::size_t> polled; // index into descriptors, or SIZE_MAX
        std::optional<Clock::time_point> nearest;
        for (EventSource *source : sources) {
            const int descriptor = source->descriptor();
            polled.push_back(descriptor >= 0 ? descriptors.size() : SIZE_MAX);
            if (descriptor >= 0)
                descriptors.push_back({descriptor, source->events(), 0});
            if (const auto deadline = source->deadline(); deadline && (!nearest || *deadline < *nearest))
                nearest = deadline;
        }

        int timeout = -1;
        if (nearest) {
            // Rounded up, so that the wait never ends just short of the deadline and spins.
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(*nearest - Clock::now()).count();
            timeout = int(std::clamp<decltype(left)>(left, 0, INT_MAX));
        }
        if (::poll(descriptors.data(), descriptors.size(), timeout) < 0 && errno != EINTR)
            throw HelperError::systemFailure("wait for the answer", errno);

        const Clock::time_point now = Clock::now();
        for (std::size_t index = 0; index < sources.size() && !m_quit; ++index) {
            EventSource *source = sources[index];
            if (!contains(source))
                continue;
            const bool ready = polled[index] != SIZE_MAX && descriptors[polled[index]].revents != 0;
            const auto deadline = source->deadline();
            if (ready || (deadline && *deadline <= now))
                source->dispatch();
        }
    }
}

void Timer::dispatch()
{
    m_deadline.reset();
    m_timeout();
}
