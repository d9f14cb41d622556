#pragma once

#include <QByteArray>
#include <QByteArrayView>

#include <cstring>
#include <optional>
#include <utility>

// Splits one output stream into lines as its bytes arrive. Bytes after the last newline
// wait for the next chunk, so a line split across reads comes out once, whole.
class OutputLineBuffer final {
public:
    // Calls onLine(QByteArrayView) for every line completed by bytes, without its "\n".
    // The view is valid only during the call.
    template<typename OnLine> void append(QByteArrayView bytes, OnLine &&onLine);
    // Hands out what is left as a last line (at exit) and empties the buffer.
    template<typename OnLine> void finish(OnLine &&onLine);

    QByteArrayView pending() const noexcept { return m_pending; }

private:
    QByteArray m_pending;
};

namespace OutputLine {

// A line as it is handled: line breaks (CR, LF and the other Unicode ones) trimmed at both
// ends. nullopt for a line that is then empty or is not valid UTF-8 (such a line is dropped).
std::optional<QByteArrayView> trimmed(QByteArrayView line);

bool isValidUtf8(QByteArrayView bytes);

} // namespace OutputLine

template<typename OnLine> void OutputLineBuffer::append(QByteArrayView bytes, OnLine &&onLine)
{
    const char *const data = bytes.data();
    const qsizetype size = bytes.size();
    qsizetype start = 0;
    if (!m_pending.isEmpty()) {
        const auto *newline = static_cast<const char *>(std::memchr(data, '\n', static_cast<size_t>(size)));
        if (!newline) {
            m_pending.append(bytes);
            return;
        }
        const qsizetype end = newline - data;
        m_pending.append(data, end);
        const QByteArray line = std::exchange(m_pending, QByteArray());
        onLine(QByteArrayView(line));
        start = end + 1;
    }
    while (start < size) {
        const auto *newline =
            static_cast<const char *>(std::memchr(data + start, '\n', static_cast<size_t>(size - start)));
        if (!newline) {
            m_pending.append(data + start, size - start);
            return;
        }
        const qsizetype end = newline - data;
        onLine(QByteArrayView(data + start, end - start));
        start = end + 1;
    }
}

template<typename OnLine> void OutputLineBuffer::finish(OnLine &&onLine)
{
    if (m_pending.isEmpty())
        return;
    const QByteArray line = std::exchange(m_pending, QByteArray());
    onLine(QByteArrayView(line));
}
