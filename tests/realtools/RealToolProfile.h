#pragma once

#include "backends/BackendProfiles.h"

#include <QMap>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

class LoopbackModelServer;

// How one of the real tools from `make real-tools` runs against the loopback model server:
// the environment of a process that starts it, and the tool's own configuration files.
// Every base URL points at the server and the tools' update checks, telemetry and plugin
// installs are off, so nothing a tool does is meant to leave the machine.
class RealToolProfile final {
public:
    RealToolProfile(QuickTaskCLIBackend backend, const LoopbackModelServer &server);

    // Where `make real-tools` installs the tools (TARVEL_REAL_TOOLS_DIR wins), and their bin folder.
    static QString toolsDirectory();
    static QString binDirectory();
    // Why the backend's tool cannot run here, or empty.
    static QString missingReason(QuickTaskCLIBackend backend);
    // Variables to remove from the environment: each could point a tool at another binary,
    // a proxy, a cloud provider or a configuration outside the test's home.
    static const QStringList &clearedVariables();
    // Empty when this process sees no network interface but the loopback one (as inside
    // loopback-only.sh), else what it sees.
    static QString networkIsolationProblem();

    QuickTaskCLIBackend backend() const { return m_backend; }
    // Variables to set, PATH (the tools first, then the system's) among them.
    const QMap<QString, QString> &variables() const { return m_variables; }
    // Writes the tool's configuration where it looks for it when started with environment
    // (its HOME and XDG_CONFIG_HOME). Returns what went wrong, or empty.
    QString writeConfigurationFiles(const QProcessEnvironment &environment) const;
    // What the tool's interactive screen needs on top, so that it opens on its prompt in the
    // project folder: claude's onboarding done, the key approved and the folder trusted; codex's
    // folder trusted and its notices seen. Returns what went wrong, or empty.
    QString writeInteractiveSettings(const QProcessEnvironment &environment, const QString &project) const;
    // Where the tool sends its model requests.
    const QString &modelRequestPath() const { return m_requestPath; }

private:
    QuickTaskCLIBackend m_backend;
    QString m_baseURL;
    QString m_requestPath;
    QMap<QString, QString> m_variables;
};
