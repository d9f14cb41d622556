#pragma once

// Set-up shared by the composer tests.
#include "platform/WindowSystem.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>

// The desktop as a list (normal visible windows front-most first, and the active window, which
// need not be one of them); records which processes were asked to take the focus back and the
// Dock icon's changes.
class FakeWindowSystem final : public WindowSystem {
public:
    QList<TopLevelWindow> windows;
    std::optional<TopLevelWindow> active;
    QList<qint64> activatedApplications;
    QList<bool> dockChanges;

    void setShowsInDock(bool shown) override { dockChanges.append(shown); }
    bool isAvailable() const override { return true; }
    QList<TopLevelWindow> topLevelWindows() const override { return windows; }
    std::optional<TopLevelWindow> activeWindow() const override { return active; }
    bool activateWindow(quint64) override { return true; }
    bool activateApplication(qint64 pid) override
    {
        activatedApplications.append(pid);
        return true;
    }
    QString executableName(qint64) const override { return {}; }
    bool compositorRunning() const override { return true; }
    QList<ScreenArea> screens() const override { return {}; }
    int primaryScreenIndex() const override { return -1; }
};

// codex's own model cache in the private home, as the real tool leaves it.
inline void copyCodexModelCache(const TestEnvironment &environment)
{
    QDir().mkpath(environment.path(QStringLiteral(".codex")));
    QFile::copy(qEnvironmentVariable("TARVEL_TEST_DATA") + QStringLiteral("/codex/models_cache.json"),
                environment.path(QStringLiteral(".codex/models_cache.json")));
}
