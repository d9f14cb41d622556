#pragma once

#include <QString>

#include <spawn.h>

// The few process details that differ between the operating systems. One source file per
// platform implements them; CMake picks it.
namespace ProcessPlatform {

// The shell whose login profile is asked for PATH when SHELL is unset or empty.
QString defaultLoginShell();

// Adds "change to this folder" to the file actions; returns 0 or an error number.
int addWorkingDirectoryAction(posix_spawn_file_actions_t *actions, const char *path);

// pipe() whose two ends are close-on-exec from the start, so that a process started by
// another thread at the same moment cannot inherit them. Returns 0, or -1 with errno set.
int makeCloseOnExecPipe(int descriptors[2]);

} // namespace ProcessPlatform
