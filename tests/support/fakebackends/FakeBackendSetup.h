#pragma once

#include "fakebackends/FakeBackends.h"
#include "support/TestEnvironment.h"

// A private profile with the fake backends first on PATH, their runs recorded, no login shell
// to ask and no override variable, so only the fakes can be found.
struct FakeBackendSetup {
    FakeBackendSetup()
    {
        environment.set("PATH", fakes.searchPath());
        environment.set("SHELL", environment.path(QStringLiteral("no-login-shell")));
        environment.set("FAKE_RECORD_DIR", fakes.recordDirectory());
        environment.unset("FAKE_STEPS");
        for (const char *name : {"CODEX_BIN_PATH", "CLAUDE_BIN_PATH", "OPENCODE_BIN_PATH"})
            environment.unset(name);
    }

    // The steps the next run of a fake follows (see fakebackend.sh).
    void useSteps(const QStringList &steps) { environment.set("FAKE_STEPS", fakes.writeSteps(steps)); }

    TestEnvironment environment;
    FakeBackends fakes;
};
