#include "platform/UnixSocket.h"

#include <sys/socket.h>

namespace UnixSocket {

std::optional<uid_t> peerUserId(int descriptor)
{
    ucred credentials{};
    socklen_t size = sizeof credentials;
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0 ||
        size != sizeof credentials)
        return std::nullopt;
    return credentials.uid;
}

ssize_t sendSome(int descriptor, const char *data, std::size_t size)
{
    return ::send(descriptor, data, size, MSG_NOSIGNAL);
}

} // namespace UnixSocket
