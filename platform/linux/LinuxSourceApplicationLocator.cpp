#include "platform/SourceApplicationLocator.h"

#include <QByteArray>
#include <QFile>
#include <QFileInfo>

#include <unistd.h>

namespace SourceApplicationLocator {
namespace {

QByteArray readProcFile(pid_t pid, const char *name)
{
    QFile file(QStringLiteral("/proc/%1/%2").arg(pid).arg(QLatin1String(name)));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

pid_t parentOf(pid_t pid)
{
    // "pid (comm) state ppid ...": comm may hold spaces and parentheses, so read from
    // the last closing parenthesis.
    const QByteArray stat = readProcFile(pid, "stat");
    const qsizetype close = stat.lastIndexOf(')');
    if (close < 0)
        return -1;
    const QList<QByteArray> fields = stat.mid(close + 2).split(' ');
    bool ok = false;
    const int parent = fields.size() > 1 ? fields.at(1).toInt(&ok) : -1;
    return ok ? parent : -1;
}

std::optional<QString> executableName(pid_t pid)
{
    QString target = QFileInfo(QStringLiteral("/proc/%1/exe").arg(pid)).symLinkTarget();
    if (target.endsWith(QLatin1String(" (deleted)")))
        target.chop(10);
    if (!target.isEmpty())
        return QFileInfo(target).fileName();
    // Another user's process hides its executable; its command name is still public.
    const QString comm = QString::fromLocal8Bit(readProcFile(pid, "comm")).trimmed();
    return comm.isEmpty() ? std::nullopt : std::optional<QString>(comm);
}

} // namespace

SourceApplication locate()
{
    SourceApplication source;
    // What started the terminal (a launcher) may have left a token that its shells inherit.
    if (const QString token = qEnvironmentVariable("XDG_ACTIVATION_TOKEN"); !token.isEmpty())
        source.activationToken = token;
    // The shell is the session leader; the terminal emulator started it.
    const pid_t leader = ::getsid(0);
    if (leader <= 0)
        return source;
    const pid_t terminal = parentOf(leader);
    if (terminal <= 1)
        return source;
    source.identifier = executableName(terminal);
    source.pid = qint32(terminal);
    return source;
}

} // namespace SourceApplicationLocator
