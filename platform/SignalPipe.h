#pragma once

#include <functional>

// SIGINT, SIGTERM and SIGHUP turned into bytes on a pipe: the handler only write()s the signal's
// number, and an event loop (tarvel-edit's own or Qt's) reads them when the descriptor is ready.
// One per process. Plain C++, for tarvel-edit too.
class SignalPipe final {
public:
    // Throws std::system_error when the pipe cannot be made.
    SignalPipe();
    ~SignalPipe();
    SignalPipe(const SignalPipe &) = delete;
    SignalPipe &operator=(const SignalPipe &) = delete;

    int descriptor() const;
    // Calls signalled once for each signal caught since the last call.
    void drain(const std::function<void(int signalNumber)> &signalled);

    // Puts the default handlers back and unblocks every signal, for exec(): an editor starts
    // with them as it would from a shell, SIGPIPE's default included, which the bus libraries
    // ignore.
    static void restoreDefaultDispositions();
};
