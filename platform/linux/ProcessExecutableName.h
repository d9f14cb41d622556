#pragma once

#include <QString>
#include <QtGlobal>

// The executable's file name of a process ("xterm", "foot"), from /proc; empty when the process is
// unknown. Another user's process gives its short name, as its exe link is closed to us.
QString processExecutableName(qint64 pid);
