#pragma once

#include <string>
#include <vector>

namespace DetachedProcess {

// Starts program with arguments in a session of its own, in workingDirectory, with /dev/null
// for its streams and default signal handling. It is not this process's child, so a terminal
// editor that replaces this process later never inherits it. Returns 0, or the errno of what
// failed (exec failures included).
int start(const std::string &program, const std::vector<std::string> &arguments,
          const std::string &workingDirectory);

} // namespace DetachedProcess
