#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QString>

#include <optional>

// Whole-file reads and writes. A write goes to a temporary file beside the target and
// is renamed over it, so a reader sees the old file or the new one, never a part.
// Failures throw SystemError.
namespace DataFile {

inline constexpr QFileDevice::Permissions privatePermissions =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner;

// Whether a write waits for the data to reach the disk. A file that only lives until another
// process has read it (a response, a marker) need not survive the machine going down: what would
// read it goes down with it, and the wait is milliseconds on the way to that reader.
enum class Sync { toDisk, none };

void write(const QString &path, const QByteArray &data,
           QFileDevice::Permissions permissions = privatePermissions, Sync sync = Sync::toDisk);
QByteArray read(const QString &path);

// What readPlainFile found at a path.
enum class PlainFileStatus { read, missing, symbolicLink, notPlainFile, tooLarge };
struct PlainFileContents {
    PlainFileStatus status = PlainFileStatus::missing;
    QByteArray bytes; // when status is read
};
enum class SymbolicLinks { follow, refuse };

// The one read of a file that someone else may have put there (a request, another tool's
// file, the user's shell start-up file). It never blocks on a FIFO or a device and never
// reads more than maximumSize bytes: the file is opened non-blocking (never as a controlling
// terminal) and examined with fstat on the open descriptor, so it cannot be swapped between
// the check and the read, and only a plain file is read. A link at path itself is refused
// when asked. Other failures (no permission, an I/O error) throw SystemError.
PlainFileContents readPlainFile(const QString &path, qint64 maximumSize, SymbolicLinks links);
// Another program's file: its bytes when it is a plain file of at most maximumSize bytes,
// and nothing for anything else, failures included.
std::optional<QByteArray> readIfPlainFile(const QString &path, qint64 maximumSize);

// Removes the file if it is there; a missing file is not an error.
void removeIfExists(const QString &path);
bool exists(const QString &path);

} // namespace DataFile
