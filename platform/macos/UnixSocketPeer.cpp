#include "platform/UnixSocket.h"

#include <sys/socket.h>
#include <unistd.h>

namespace UnixSocket {

std::optional<uid_t> peerUserId(int descriptor)
{
    uid_t user = 0;
    gid_t group = 0;
    if (::getpeereid(descriptor, &user, &group) != 0)
        return std::nullopt;
    return user;
}

// The Mac has no MSG_NOSIGNAL; the option on the socket does the same for every send.
ssize_t sendSome(int descriptor, const char *data, std::size_t size)
{
    const int on = 1;
    ::setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
    return ::send(descriptor, data, size, 0);
}

} // namespace UnixSocket
