#include "platform/linux/ProcessExecutableName.h"

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

QString processExecutableName(qint64 pid)
{
    if (pid <= 0)
        return {};
    QString target = QFile::symLinkTarget(QStringLiteral("/proc/%1/exe").arg(pid));
    if (!target.isEmpty()) {
        // A binary replaced by an upgrade while running still names its old file.
        target.remove(QRegularExpression(QStringLiteral(u" \\(deleted\\)$")));
        return QFileInfo(target).fileName();
    }
    QFile comm(QStringLiteral("/proc/%1/comm").arg(pid));
    if (!comm.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLocal8Bit(comm.readAll()).trimmed();
}
