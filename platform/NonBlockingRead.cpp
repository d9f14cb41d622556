#include "platform/NonBlockingRead.h"

#include <cerrno>
#include <unistd.h>

namespace NonBlockingRead {

void available(FileDescriptor &descriptor, QByteArray *into, qsizetype limit)
{
    char buffer[64 * 1024];
    while (descriptor.isValid()) {
        const ssize_t count = ::read(descriptor.get(), buffer, sizeof buffer);
        if (count > 0) {
            if (into && into->size() < limit)
                into->append(buffer, qMin<qsizetype>(count, limit - into->size()));
            continue;
        }
        if (count < 0 && errno == EINTR)
            continue;
        if (count == 0 || (errno != EAGAIN && errno != EWOULDBLOCK))
            descriptor.reset();
        return;
    }
}

} // namespace NonBlockingRead
