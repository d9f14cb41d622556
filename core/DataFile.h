#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QString>

// Whole-file reads and writes. A write goes to a temporary file beside the target and
// is renamed over it, so a reader sees the old file or the new one, never a part.
// Failures throw SystemError.
namespace DataFile {

inline constexpr QFileDevice::Permissions privatePermissions = QFileDevice::ReadOwner | QFileDevice::WriteOwner;

void write(const QString &path, const QByteArray &data,
           QFileDevice::Permissions permissions = privatePermissions);
QByteArray read(const QString &path);
// Removes the file if it is there; a missing file is not an error.
void removeIfExists(const QString &path);
bool exists(const QString &path);

} // namespace DataFile
