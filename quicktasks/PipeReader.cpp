#include "quicktasks/PipeReader.h"

#include <cerrno>
#include <limits>

#include <unistd.h>

namespace {
constexpr qsizetype kReadSize = 64 * 1024;
// A chatty child must not keep the event loop from everything else.
constexpr qsizetype kLimitPerWakeUp = 1024 * 1024;
} // namespace

PipeReader::PipeReader(FileDescriptor descriptor, QObject *parent)
    : QObject(parent)
    , m_descriptor(std::move(descriptor))
{
    if (!m_descriptor.isValid())
        return;
    m_notifier = std::make_unique<QSocketNotifier>(m_descriptor.get(), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] { readAvailable(kLimitPerWakeUp); });
}

PipeReader::~PipeReader()
{
    m_notifier.reset();
}

void PipeReader::drain()
{
    readAvailable(std::numeric_limits<qsizetype>::max());
}

void PipeReader::close()
{
    // close() may run inside a handler of the notifier's own signal; let it unwind first.
    if (m_notifier) {
        m_notifier->setEnabled(false);
        m_notifier.release()->deleteLater();
    }
    m_descriptor.reset();
}

void PipeReader::readAvailable(qsizetype limit)
{
    if (!m_descriptor.isValid() || m_atEnd)
        return;
    QByteArray bytes;
    while (bytes.size() < limit) {
        const qsizetype start = bytes.size();
        bytes.resize(start + kReadSize);
        const ssize_t count = ::read(m_descriptor.get(), bytes.data() + start, kReadSize);
        if (count > 0) {
            bytes.resize(start + count);
            continue;
        }
        bytes.resize(start);
        if (count == 0) {
            // Every writer has closed its end; nothing more can come.
            m_atEnd = true;
            m_notifier->setEnabled(false);
            break;
        }
        if (errno == EINTR)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            m_atEnd = true;
            m_notifier->setEnabled(false);
        }
        break;
    }
    if (!bytes.isEmpty())
        Q_EMIT dataRead(bytes);
}
