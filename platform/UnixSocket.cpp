#include "platform/UnixSocket.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace UnixSocket {
namespace {

bool makeAddress(const std::string &path, sockaddr_un &address)
{
    std::memset(&address, 0, sizeof address);
    address.sun_family = AF_UNIX;
    if (!fitsAddress(path))
        return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

// SOCK_NONBLOCK and SOCK_CLOEXEC are not everywhere (the Mac has neither).
int prepared(int descriptor)
{
    if (descriptor < 0)
        return descriptor;
    ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
    ::fcntl(descriptor, F_SETFL, ::fcntl(descriptor, F_GETFL) | O_NONBLOCK);
    return descriptor;
}

Result failure(int descriptor)
{
    const int error = errno;
    if (descriptor >= 0)
        ::close(descriptor);
    return {-1, error};
}

std::string folderOf(const std::string &path)
{
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

} // namespace

bool fitsAddress(const std::string &path)
{
    return !path.empty() && path.size() < sizeof(sockaddr_un::sun_path);
}

Result listenAt(const std::string &path)
{
    sockaddr_un address{};
    if (!makeAddress(path, address))
        return {-1, ENAMETOOLONG};
    const int descriptor = prepared(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (descriptor < 0)
        return failure(descriptor);
    if (::bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        return failure(descriptor);
    // Its folder is private already; the socket is the owner's alone as well.
    if (::chmod(path.c_str(), 0600) != 0 || ::listen(descriptor, 16) != 0) {
        const Result result = failure(descriptor);
        ::unlink(path.c_str());
        return result;
    }
    return {descriptor, 0};
}

Result connectTo(const std::string &path)
{
    sockaddr_un address{};
    if (!makeAddress(path, address))
        return {-1, ENAMETOOLONG};
    const int descriptor = prepared(::socket(AF_UNIX, SOCK_STREAM, 0));
    if (descriptor < 0)
        return failure(descriptor);
    int result = 0;
    do {
        result = ::connect(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    } while (result != 0 && errno == EINTR);
    // A full backlog makes a non-blocking connect wait (EAGAIN on Linux, EINPROGRESS elsewhere);
    // the caller's own time limit covers that, as it does a silent peer.
    if (result != 0 && errno != EINPROGRESS && errno != EAGAIN)
        return failure(descriptor);
    return {descriptor, 0};
}

Result accept(int listening)
{
    int descriptor = -1;
    do {
        descriptor = ::accept(listening, nullptr, nullptr);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0)
        return {-1, errno == EWOULDBLOCK ? EAGAIN : errno};
    return {prepared(descriptor), 0};
}

std::string looseAccess(const std::string &path)
{
    const std::string folder = folderOf(path);
    struct stat info {};
    if (::lstat(folder.c_str(), &info) == 0) {
        if (S_ISLNK(info.st_mode))
            return "its folder " + folder + " is a symbolic link";
        if (info.st_uid != ::geteuid())
            return "its folder " + folder + " belongs to another user";
        if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0)
            return "other users can change its folder " + folder + " (chmod 700 " + folder + " fixes that)";
    }
    if (::lstat(path.c_str(), &info) != 0)
        return {};
    if (S_ISLNK(info.st_mode))
        return "it is a symbolic link";
    if (!S_ISSOCK(info.st_mode))
        return "it is not a socket";
    if (info.st_uid != ::geteuid())
        return "it belongs to another user";
    if ((info.st_mode & (S_IRWXG | S_IRWXO)) != 0)
        return "other users may use it (chmod 600 " + path + " fixes that)";
    return {};
}

} // namespace UnixSocket
