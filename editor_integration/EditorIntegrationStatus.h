#pragma once

#include <QString>
#include <QUrl>

// Where the editor integration lives for the current user.
struct EditorIntegrationInstallLocation {
    // The user's shell, e.g. "zsh".
    QString shellName;
    // The shell start-up file that carries the marked block.
    QUrl configURL;
    // The shim that the editor variable names: home + ".local/bin/tarvel-edit".
    QUrl helperScriptURL;

    friend bool operator==(const EditorIntegrationInstallLocation &,
                           const EditorIntegrationInstallLocation &) = default;
};

enum class EditorIntegrationInstallReason {
    // No editor variable is assigned in the start-up file.
    notConfigured,
    // The variable names the shim, but the shim is not an executable file.
    helperMissing,
};

struct EditorIntegrationStatus {
    enum class Kind { installed, needsInstall, configuredElsewhere };

    Kind kind = Kind::needsInstall;
    EditorIntegrationInstallLocation location;
    // needsInstall only.
    EditorIntegrationInstallReason reason = EditorIntegrationInstallReason::notConfigured;
    // configuredElsewhere only: "VISUAL" or "EDITOR", and the command it names.
    QString variable;
    QString command;

    friend bool operator==(const EditorIntegrationStatus &, const EditorIntegrationStatus &) = default;
};
