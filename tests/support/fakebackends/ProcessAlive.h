#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

#include <csignal>
#include <sys/types.h>

// Whether pid names a process that still runs. A killed process whose parent has not
// reaped it yet is a zombie: kill() still finds it, but it runs no more.
inline bool isProcessAlive(pid_t pid)
{
    if (::kill(pid, 0) != 0)
        return false;
    QFile stat(QStringLiteral("/proc/%1/stat").arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return true;
    const QByteArray text = stat.readAll();
    const qsizetype close = text.lastIndexOf(')');
    return close < 0 || text.mid(close + 2, 1) != "Z";
}
