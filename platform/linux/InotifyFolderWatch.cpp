#include "platform/FolderWatch.h"

#include <cstdint>
#include <sys/inotify.h>
#include <unistd.h>

namespace {

constexpr std::chrono::milliseconds kPollingInterval{200};

class InotifyFolderWatch final : public FolderWatch {
public:
    InotifyFolderWatch(const std::string &folder, std::function<void()> changed)
        : m_changed(std::move(changed))
        , m_descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC))
    {
        // A file arriving (renamed into the folder, or linked there from an unnamed temporary
        // file, QSaveFile's way), or one written and closed.
        constexpr std::uint32_t kArrivals = IN_MOVED_TO | IN_CREATE | IN_CLOSE_WRITE | IN_ONLYDIR;
        if (m_descriptor >= 0 && ::inotify_add_watch(m_descriptor, folder.c_str(), kArrivals) < 0) {
            ::close(m_descriptor);
            m_descriptor = -1;
        }
    }
    ~InotifyFolderWatch() override
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }

    int descriptor() const override { return m_descriptor; }

    std::optional<Clock::time_point> deadline() const override
    {
        if (m_descriptor >= 0)
            return std::nullopt;
        return m_lastLook + kPollingInterval;
    }

    void dispatch() override
    {
        if (m_descriptor >= 0) {
            // The events themselves do not matter, only that there were some.
            alignas(inotify_event) char buffer[4096];
            while (::read(m_descriptor, buffer, sizeof buffer) > 0) {
            }
        } else {
            m_lastLook = Clock::now();
        }
        m_changed();
    }

private:
    std::function<void()> m_changed;
    int m_descriptor = -1;
    Clock::time_point m_lastLook = Clock::now();
};

} // namespace

std::unique_ptr<FolderWatch> FolderWatch::create(const std::string &folder, std::function<void()> changed)
{
    return std::make_unique<InotifyFolderWatch>(folder, std::move(changed));
}
