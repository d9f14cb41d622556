#pragma once

#include "backends/QuickTaskCLIBackend.h"
#include "quicktasks/QuickTaskCLIInstallationAvailability.h"

#include <QFuture>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <chrono>
#include <functional>
#include <optional>

// A backend executable that answered its version query, with the environment to run it in.
struct QuickTaskLaunchTarget {
    QString executablePath;
    QString version;
    // The application's environment with PATH replaced by the rebuilt search path.
    QProcessEnvironment environment;
};

// Finds the backend executables and proves they run. Every call looks for the files
// again; only a passed version check of an unchanged file is remembered (VersionCheckCache). The search path
// includes the login shell's PATH, and asking the shell can take up to 2 s, so every function below that
// reaches it blocks; on the main thread use the QFuture forms, whose results come back with .then(context,
// ...).
namespace TaskCLIExecutableLocator {

inline constexpr std::chrono::milliseconds queryTimeLimit{2000};

// SHELL when set and non-empty, else the platform's default shell.
QString loginShellExecutable();
// The PATH that the user's login shell sets up; nullopt when the shell is missing, fails,
// prints nothing or takes longer than the time limit.
std::optional<QString> loginShellPath();

// Our PATH, the login shell's PATH, then a few fixed folders; each folder once, at its
// first place. The login shell's answer is kept per shell for the life of the process once
// it has given one; after a failure or a timeout the next call asks again.
QStringList candidateDirectories();
QStringList candidateDirectories(const std::optional<QString> &loginShellPath);
// Asks the login shell on a background thread, so that the first composer or task need not.
void prepareSearchPath();

// The profile's fixed fallback, its override variable, then each candidate directory.
QStringList candidatePaths(QuickTaskCLIBackend backend);
QStringList candidatePaths(QuickTaskCLIBackend backend, const QStringList &directories);

// The first candidate that is an executable file. Throws QuickTaskError::executableNotFound.
QString resolveExecutableURL(QuickTaskCLIBackend backend);
QString resolveExecutableURL(QuickTaskCLIBackend backend, const QStringList &directories);

// The application's environment with PATH = the candidate directories joined with ":".
QProcessEnvironment processEnvironment(QuickTaskCLIBackend backend);
QProcessEnvironment processEnvironment(const QStringList &directories);

// Runs the version command. Throws QuickTaskError::versionCheckFailed with the sentence
// to show.
QString verifiedVersionString(QuickTaskCLIBackend backend, const QString &executable);
QString verifiedVersionString(QuickTaskCLIBackend backend, const QString &executable,
                              const QProcessEnvironment &environment);

// Whether a check that this very file passed before still counts, or the tool is asked again
// (a diagnosis wants the tool's answer now).
enum class RememberedChecks { trusted, rerun };

// verifiedVersionString, unless this very file (the same resolved path, size, modification
// time and inode) passed it before: then the version it printed then. Only passes are kept.
QString checkedVersionString(QuickTaskCLIBackend backend, const QString &executable,
                             const QProcessEnvironment &environment,
                             RememberedChecks remembered = RememberedChecks::trusted);

// Resolves and verifies one backend (a check that passed for the unchanged file holds):
// everything a quick task or a rewrite needs before it can start. Throws QuickTaskError.
QuickTaskLaunchTarget launchTarget(QuickTaskCLIBackend backend);
// The same on a background thread; a failure arrives as the QuickTaskError exception of the
// future (handle it with .onFailed(context, [](const QuickTaskError &error) { ... })).
QFuture<QuickTaskLaunchTarget> prepareLaunch(QuickTaskCLIBackend backend);

// Every backend, resolved and verified as launchTarget does; a failure becomes unavailable
// with its sentence. When the preferred backend passes, passedFirst hears of it as soon as it
// does, before the others are done.
QuickTaskCLIInstallationAvailabilities checkInstallationAvailabilities(
    RememberedChecks remembered = RememberedChecks::trusted,
    std::optional<QuickTaskCLIBackend> preferred = std::nullopt,
    const std::function<void(const QuickTaskCLIInstallationAvailability &)> &passedFirst = {});
// The same on a background thread.
QFuture<QuickTaskCLIInstallationAvailabilities> installationAvailabilities();
// The same, with a first result of the preferred backend alone as soon as it has passed (a
// composer need not wait for a slow backend it does not use), then every backend.
QFuture<QuickTaskCLIInstallationAvailabilities> installationAvailabilities(QuickTaskCLIBackend preferred);

} // namespace TaskCLIExecutableLocator
