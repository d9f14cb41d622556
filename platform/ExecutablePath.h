#pragma once

#include <string>

namespace ExecutablePath {
// The canonical path of the running program, or empty when the system does not say.
std::string ofThisProcess();
// The first executable file called name in the folders of PATH, or empty.
std::string findOnPath(const std::string &name);
// Whether path is a plain file this user may execute.
bool isExecutableFile(const std::string &path);
} // namespace ExecutablePath
