#include "platform/FolderWatch.h"

#include <fcntl.h>
#include <sys/event.h>
#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds kPollingInterval{200};

// A folder's vnode reports a write whenever an entry is added, removed or renamed in it.
class KqueueFolderWatch final : public FolderWatch {
public:
    KqueueFolderWatch(const std::string &folder, std::function<void()> changed)
        : m_changed(std::move(changed))
        , m_folder(::open(folder.c_str(), O_EVTONLY | O_DIRECTORY | O_CLOEXEC))
        , m_queue(m_folder >= 0 ? ::kqueue() : -1)
    {
        struct kevent change {};
        EV_SET(&change, uintptr_t(m_folder), EVFILT_VNODE, EV_ADD | EV_CLEAR, NOTE_WRITE, 0, nullptr);
        if (m_queue >= 0 && ::kevent(m_queue, &change, 1, nullptr, 0, nullptr) != 0) {
            ::close(m_queue);
            m_queue = -1;
        }
    }
    ~KqueueFolderWatch() override
    {
        if (m_queue >= 0)
            ::close(m_queue);
        if (m_folder >= 0)
            ::close(m_folder);
    }

    int descriptor() const override { return m_queue; }

    std::optional<Clock::time_point> deadline() const override
    {
        if (m_queue >= 0)
            return std::nullopt;
        return m_lastLook + kPollingInterval;
    }

    void dispatch() override
    {
        if (m_queue >= 0) {
            struct kevent event {};
            const timespec noWait{};
            while (::kevent(m_queue, nullptr, 0, &event, 1, &noWait) > 0) {
            }
        } else {
            m_lastLook = Clock::now();
        }
        m_changed();
    }

private:
    std::function<void()> m_changed;
    int m_folder = -1;
    int m_queue = -1;
    Clock::time_point m_lastLook = Clock::now();
};

} // namespace

std::unique_ptr<FolderWatch> FolderWatch::create(const std::string &folder, std::function<void()> changed)
{
    return std::make_unique<KqueueFolderWatch>(folder, std::move(changed));
}
