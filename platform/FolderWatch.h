#pragma once

#include "platform/EventSource.h"

#include <functional>
#include <memory>
#include <string>

// Says that something in one folder changed (a file arrived, was renamed into it or was
// written), without Qt. Linux: inotify; the Mac: kqueue. When the system refuses a watch (too
// many watches already), the folder is looked at five times a second instead, so a waiting
// helper still sees its answer.
class FolderWatch : public EventSource {
public:
    static std::unique_ptr<FolderWatch> create(const std::string &folder, std::function<void()> changed);
};
