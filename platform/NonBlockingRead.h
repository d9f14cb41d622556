#pragma once

#include "platform/FileDescriptor.h"

#include <QByteArray>

#include <limits>

// Reading a non-blocking pipe or socket: what it holds now, without waiting for more.
namespace NonBlockingRead {

// Reads what the descriptor holds now; its end or an error closes it. Bytes past limit are read
// and dropped, and with no into all of them are.
void available(FileDescriptor &descriptor, QByteArray *into,
               qsizetype limit = std::numeric_limits<qsizetype>::max());

} // namespace NonBlockingRead
