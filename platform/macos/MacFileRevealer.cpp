#include "platform/FileRevealer.h"

#include <QProcess>

namespace FileRevealer {

bool showItem(const QString &path)
{
    // The Finder selects the file in a window of its folder.
    return QProcess::execute(QStringLiteral("/usr/bin/open"), {QStringLiteral("-R"), path}) == 0;
}

} // namespace FileRevealer
