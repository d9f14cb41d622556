#pragma once

// The few file-system calls whose form differs between the operating systems. One source file
// per platform implements them; CMake picks it.
namespace FileSystemPlatform {

// rename(2) that fails with EEXIST instead of replacing what is at to (a plain rename replaces
// a file or an empty folder there). Where the file system cannot promise that, the check and
// the rename are two steps. Returns 0, or -1 with errno set.
int renameWithoutReplacing(const char *from, const char *to);

} // namespace FileSystemPlatform
