#pragma once

#include "platform/EventSource.h"
#include "platform/SignalPipe.h"

#include <functional>
#include <optional>

// Turns SIGINT, SIGTERM and SIGHUP into a call on the event loop. One instance per process.
class Interrupts final : public EventSource {
public:
    // Throws HelperError when the pipe cannot be made.
    explicit Interrupts(std::function<void(int signalNumber)> interrupted);

    int descriptor() const override;
    void dispatch() override;

private:
    std::function<void(int)> m_interrupted;
    std::optional<SignalPipe> m_pipe;
};
