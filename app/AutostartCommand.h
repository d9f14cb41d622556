#pragma once

#include <QStringList>
#include <QTextStream>

// `tarvel autostart on|off|status`: whether Tarvel starts in the tray at login.
int runAutostartCommand(const QStringList &arguments, QTextStream &out, QTextStream &err);
