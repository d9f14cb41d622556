#pragma once

class QThreadPool;

namespace BackgroundWork {

// The editing aids' own threads: a listing of a large tree or a dictionary load can take
// seconds, and the global pool runs the backend checks a composer waits for.
QThreadPool &pool();

} // namespace BackgroundWork
