#pragma once

#include <QByteArray>
#include <QFileDevice>
#include <QString>

#include <optional>
#include <utility>

// The rules for a block that Tarvel keeps in a file of the user's (a shell start-up file,
// ~/.ssh/config): the file is handled as bytes, every byte outside the block stays as it was,
// and a file that exists but cannot be read is refused rather than replaced by the block alone.
namespace MarkedBlock {

// A file is read whole up to this size; a larger one is refused, not cut short.
inline constexpr qint64 maximumFileSize = 16 * 1024 * 1024;

// The file's bytes as they are, links followed; empty when it does not exist. Throws TarvelError
// when it exists but is not a plain file or is too large.
QByteArray readFile(const QString &path);

// Writes the file whole and atomically. A link (a dotfiles manager's) is written through and keeps
// pointing at its file; an existing file keeps its permissions, a new one gets newFilePermissions
// and the folders it needs. Throws TarvelError, also for a file the user may not change.
void writeFile(const QString &path, const QByteArray &bytes, QFileDevice::Permissions newFilePermissions);

// Where the block lies: from the start of its begin marker's line to the end of its end marker's
// line, newline included. The innermost pair of markers counts, so a stray begin marker above
// never takes the user's lines between it and the block with it.
std::optional<std::pair<qsizetype, qsizetype>> range(const QByteArray &text, const QByteArray &beginMarker,
                                                     const QByteArray &endMarker);

// The block added at the end after a blank line (nothing before it in an empty file).
QByteArray appended(const QByteArray &text, const QByteArray &block);

} // namespace MarkedBlock
