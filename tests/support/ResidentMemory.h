#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// The resident memory of a process (this one by default) in MB, from /proc; 0 when it cannot
// be read.
inline double residentMegabytes(qint64 pid = 0)
{
    QFile status(pid > 0 ? QStringLiteral("/proc/%1/status").arg(pid) : QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
    }
    return 0;
}

// Whether this build runs under AddressSanitizer, whose allocator keeps freed memory: resident
// memory then says nothing of what the code let go of.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool kAddressSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool kAddressSanitizer = true;
#else
inline constexpr bool kAddressSanitizer = false;
#endif
#else
inline constexpr bool kAddressSanitizer = false;
#endif
