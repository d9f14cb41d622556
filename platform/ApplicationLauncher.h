#pragma once

#include <QString>

// Starts the Tarvel application detached from the caller: its own session, no terminal.
namespace ApplicationLauncher {

struct Outcome {
    bool started = false;
    // Why nothing was started, as a short phrase ("no display", "Tarvel is not installed").
    QString reason;
};

// Uses TARVEL_APP_PATH when it is set; otherwise the platform's usual places.
Outcome launch();

} // namespace ApplicationLauncher
