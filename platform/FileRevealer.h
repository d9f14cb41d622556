#pragma once

#include <QString>

// Shows a file selected in the desktop's file manager.
namespace FileRevealer {

// False when no file manager took the request; the caller then opens the folder instead.
bool showItem(const QString &path);

} // namespace FileRevealer
