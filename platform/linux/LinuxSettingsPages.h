#pragma once

#include "platform/PermissionPlatform.h"

#include <QList>
#include <QString>
#include <QStringList>

#include <functional>

// A settings program and the arguments that open one of its pages.
struct SettingsCommand {
    QString program;
    QStringList arguments;

    friend bool operator==(const SettingsCommand &, const SettingsCommand &) = default;
};

// The desktops' own settings panels for each page: GNOME, KDE Plasma, Xfce, then stand-alone
// tools.
namespace LinuxSettingsPages {

// Takes a program name and answers its full path, or an empty text when it is not installed.
using ExecutableLookup = std::function<QString(const QString &program)>;

// The installed programs that show the page, in the order to try them, with their full paths.
QList<SettingsCommand> candidates(PermissionSettingsPage page, const ExecutableLookup &findExecutable);

// Where to look when no program could open the page, as a sentence for the user.
QString whereToLook(PermissionSettingsPage page);

} // namespace LinuxSettingsPages
