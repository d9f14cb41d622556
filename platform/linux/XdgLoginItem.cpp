#include "platform/LoginItem.h"

#include "core/AppConstants.h"
#include "core/DataFile.h"
#include "core/TarvelError.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>

namespace LoginItem {
namespace {

// An Exec argument with reserved characters goes in double quotes, with a backslash before
// each ", `, $ and backslash; the value's own escaping then doubles every backslash.
QString quotedExec(const QString &path)
{
    static const QString reserved = QStringLiteral("\"`$\\ \t\n'><~|&;*?#()");
    if (std::none_of(path.begin(), path.end(), [](QChar c) { return reserved.contains(c); }))
        return path;
    QString quoted;
    for (const QChar c : path) {
        if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
            quoted += u'\\';
        quoted += c;
    }
    quoted.replace(QStringLiteral("\\"), QStringLiteral("\\\\"));
    return u'"' + quoted + u'"';
}

} // namespace

QString location()
{
    return QDir(QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation))
        .filePath(QStringLiteral("autostart/%1.desktop").arg(AppConstants::appBundleIdentifier));
}

bool isEnabled()
{
    if (!DataFile::exists(location()))
        return false;
    // An entry the user switched off in the desktop's own settings stays off.
    try {
        const QByteArray entry = DataFile::read(location());
        return !entry.contains("\nHidden=true") && !entry.contains("\nX-GNOME-Autostart-enabled=false");
    } catch (const TarvelError &) {
        return false;
    }
}

void setEnabled(bool enabled)
{
    if (!enabled) {
        DataFile::removeIfExists(location());
        return;
    }
    // The copy that is running now is the one to start: an installed one or a build.
    const QString entry = QStringLiteral("[Desktop Entry]\n"
                                         "Type=Application\n"
                                         "Name=%1\n"
                                         "Comment=Starts %1 in the tray at login\n"
                                         "Exec=%2\n"
                                         "Icon=%3\n"
                                         "Terminal=false\n"
                                         "X-GNOME-Autostart-enabled=true\n")
                              .arg(AppConstants::appName, quotedExec(QCoreApplication::applicationFilePath()),
                                   AppConstants::appBundleIdentifier);
    QDir().mkpath(QFileInfo(location()).absolutePath());
    DataFile::write(location(), entry.toUtf8(),
                    DataFile::privatePermissions | QFileDevice::ReadGroup | QFileDevice::ReadOther);
}

} // namespace LoginItem
