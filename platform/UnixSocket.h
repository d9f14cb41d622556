#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <sys/types.h>

// Unix stream sockets in plain C++, for the remote editing socket: the application listens on
// one, tarvel-edit on another machine connects to the one ssh forwards there. Descriptors are
// non-blocking and closed on exec; failures come back as an errno value.
namespace UnixSocket {

struct Result {
    int descriptor = -1;
    int error = 0;
};

// Whether the path fits a socket address (a little over 100 bytes on every system).
bool fitsAddress(const std::string &path);
// Binds a new socket at path (which must not exist), limits it to its owner (0600) and listens.
Result listenAt(const std::string &path);
// Connects to the socket at path. A Unix connection completes at once or fails: ECONNREFUSED
// when nothing listens there (a stale socket), ENOENT when there is none.
Result connectTo(const std::string &path);
// Takes a waiting connection; EAGAIN when none waits.
Result accept(int listening);

// The user the peer of a connected socket ran as when it connected (SO_PEERCRED on Linux,
// getpeereid on the Mac); nothing when the system does not say.
std::optional<uid_t> peerUserId(int descriptor);
// send() without SIGPIPE when the peer has gone (EPIPE instead). Returns the bytes sent or -1.
ssize_t sendSome(int descriptor, const char *data, std::size_t size);

// Why the socket at path, or its folder, could let another user in or put another socket in its
// place: a link, another user's, group or others may write the folder or use the socket. Empty
// when both are the user's own; a missing socket is for connectTo() to report.
std::string looseAccess(const std::string &path);

} // namespace UnixSocket
