#pragma once

#include <QByteArrayView>
#include <QString>

namespace OutputFile {

// Opens the file at its end (creating it private to the user), writes bytes and closes it
// again, so a transcript or raw log is complete on disk after every chunk. Returns false
// when the file cannot be opened or written; the caller decides whether that matters.
bool append(const QString &path, QByteArrayView bytes);

} // namespace OutputFile
