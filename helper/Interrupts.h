#pragma once

#include "platform/EventSource.h"

#include <functional>

// Turns SIGINT, SIGTERM and SIGHUP into a call on the event loop. The handler only write()s the
// signal number into a pipe; everything else happens in dispatch(). One instance per process.
class Interrupts final : public EventSource {
public:
    // Throws HelperError when the pipe cannot be made.
    explicit Interrupts(std::function<void(int signalNumber)> interrupted);
    ~Interrupts() override;

    // Puts the default handlers back and unblocks every signal, for exec().
    static void restoreDefaultDispositions();

    int descriptor() const override;
    void dispatch() override;

private:
    std::function<void(int)> m_interrupted;
};
