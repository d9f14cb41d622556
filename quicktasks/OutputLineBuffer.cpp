#include "quicktasks/OutputLineBuffer.h"

#include <cstdint>

namespace OutputLine {

namespace {

// The length of the line break that starts at (or, backwards, ends at) the given place:
// LF, VT, FF, CR, NEL, LINE SEPARATOR or PARAGRAPH SEPARATOR in UTF-8; 0 for none.
qsizetype lineBreakAt(QByteArrayView bytes)
{
    if (bytes.isEmpty())
        return 0;
    if (bytes[0] >= '\n' && bytes[0] <= '\r')
        return 1;
    if (bytes.startsWith("\xC2\x85"))
        return 2;
    if (bytes.startsWith("\xE2\x80\xA8") || bytes.startsWith("\xE2\x80\xA9"))
        return 3;
    return 0;
}

qsizetype lineBreakBefore(QByteArrayView bytes)
{
    if (bytes.isEmpty())
        return 0;
    const char last = bytes.back();
    if (last >= '\n' && last <= '\r')
        return 1;
    if (bytes.endsWith("\xC2\x85"))
        return 2;
    if (bytes.endsWith("\xE2\x80\xA8") || bytes.endsWith("\xE2\x80\xA9"))
        return 3;
    return 0;
}

} // namespace

std::optional<QByteArrayView> trimmed(QByteArrayView line)
{
    while (const qsizetype length = lineBreakAt(line))
        line = line.sliced(length);
    while (const qsizetype length = lineBreakBefore(line))
        line.chop(length);
    if (line.isEmpty() || !isValidUtf8(line))
        return std::nullopt;
    return line;
}

bool isValidUtf8(QByteArrayView bytes)
{
    const auto *p = reinterpret_cast<const unsigned char *>(bytes.data());
    const auto *const end = p + bytes.size();
    while (p < end) {
        // Output is mostly ASCII: skip it eight bytes at a time.
        while (end - p >= 8) {
            std::uint64_t word;
            std::memcpy(&word, p, sizeof word);
            if (word & 0x8080808080808080ULL)
                break;
            p += 8;
        }
        if (p == end)
            break;
        const unsigned char lead = *p;
        if (lead < 0x80) {
            ++p;
            continue;
        }
        int continuationCount = 0;
        std::uint32_t codePoint = 0;
        if (lead >= 0xC2 && lead <= 0xDF) {
            continuationCount = 1;
            codePoint = lead & 0x1F;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            continuationCount = 2;
            codePoint = lead & 0x0F;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            continuationCount = 3;
            codePoint = lead & 0x07;
        } else {
            return false;
        }
        if (end - p <= continuationCount)
            return false;
        for (int i = 1; i <= continuationCount; ++i) {
            if ((p[i] & 0xC0) != 0x80)
                return false;
            codePoint = (codePoint << 6) | (p[i] & 0x3F);
        }
        // Overlong forms, surrogates and anything past U+10FFFF.
        if (continuationCount == 2 && (codePoint < 0x800 || (codePoint >= 0xD800 && codePoint <= 0xDFFF)))
            return false;
        if (continuationCount == 3 && (codePoint < 0x10000 || codePoint > 0x10FFFF))
            return false;
        p += continuationCount + 1;
    }
    return true;
}

} // namespace OutputLine
