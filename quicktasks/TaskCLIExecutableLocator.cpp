#include "quicktasks/TaskCLIExecutableLocator.h"

#include "backends/BackendProfiles.h"
#include "platform/ProcessPlatform.h"
#include "quicktasks/QuickTaskError.h"
#include "quicktasks/ShortProcess.h"
#include "quicktasks/VersionCheckCache.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QPromise>
#include <QSet>
#include <QThreadPool>

#include <algorithm>
#include <future>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <unistd.h>

namespace TaskCLIExecutableLocator {
namespace {

bool isExecutableFile(const QString &path)
{
    return !path.isEmpty() && QFileInfo(path).isFile() &&
           ::access(QFile::encodeName(path).constData(), X_OK) == 0;
}

void appendEntries(QStringList &directories, QSet<QString> &seen, const QString &searchPath)
{
    for (const QString &entry : searchPath.split(u':', Qt::SkipEmptyParts)) {
        if (!seen.contains(entry)) {
            seen.insert(entry);
            directories.append(entry);
        }
    }
}

// The work's answer is the future's last result; it may add earlier ones through the promise.
template<typename T, typename Work> QFuture<T> runInBackground(Work work)
{
    auto promise = std::make_shared<QPromise<T>>();
    QFuture<T> future = promise->future();
    promise->start();
    QThreadPool::globalInstance()->start([promise, work = std::move(work)] {
        try {
            promise->addResult(work(*promise));
        } catch (...) {
            promise->setException(std::current_exception());
        }
        promise->finish();
    });
    return future;
}

} // namespace

QString loginShellExecutable()
{
    const QString shell = qEnvironmentVariable("SHELL");
    return shell.isEmpty() ? ProcessPlatform::defaultLoginShell() : shell;
}

std::optional<QString> loginShellPath()
{
    const QString shell = loginShellExecutable();
    if (!isExecutableFile(shell))
        return std::nullopt;
    ShortProcessResult result;
    try {
        result = ShortProcess::run(shell, {QStringLiteral("-lc"), QStringLiteral("printf %s \"$PATH\"")},
                                   QProcessEnvironment::systemEnvironment(), queryTimeLimit);
    } catch (const TarvelError &) {
        return std::nullopt;
    }
    if (result.timedOut)
        return std::nullopt;
    const QString path = QString::fromUtf8(result.standardOutput).trimmed();
    if (path.isEmpty())
        return std::nullopt;
    return path;
}

QStringList candidateDirectories()
{
    // A login shell's answer is kept per shell for the life of the application: its start-up
    // files rarely change, and a slow one (up to the 2 s limit) would otherwise hold up every
    // composer and every task start. A failed or timed-out answer is not kept (a shell slow
    // while the desktop loads would hide the tools on its PATH until Tarvel restarts): the next
    // check asks again. Callers that come while the shell is being asked take that answer.
    using Answer = std::shared_future<std::optional<QString>>;
    static std::mutex mutex;
    static QHash<QString, Answer> answers;
    const QString shell = loginShellExecutable();
    std::promise<std::optional<QString>> asked;
    Answer answer;
    bool asking = false;
    {
        const std::lock_guard lock(mutex);
        answer = answers.value(shell);
        const bool failed = answer.valid() &&
                            answer.wait_for(std::chrono::seconds(0)) == std::future_status::ready &&
                            !answer.get();
        if (!answer.valid() || failed) {
            answer = asked.get_future().share();
            answers.insert(shell, answer);
            asking = true;
        }
    }
    if (asking) {
        std::optional<QString> path;
        try {
            path = loginShellPath();
        } catch (...) {
            // Kept as a failure, asked again next time, rather than leaving waiters stuck.
        }
        asked.set_value(path);
    }
    return candidateDirectories(answer.get());
}

void prepareSearchPath()
{
    QThreadPool::globalInstance()->start([] { candidateDirectories(); });
}

QStringList candidateDirectories(const std::optional<QString> &loginShellPath)
{
    QStringList directories;
    QSet<QString> seen;
    appendEntries(directories, seen, qEnvironmentVariable("PATH"));
    if (loginShellPath)
        appendEntries(directories, seen, *loginShellPath);
    const QString home = QDir::homePath();
    appendEntries(directories, seen,
                  QStringList{QStringLiteral("/opt/homebrew/bin"), QStringLiteral("/usr/local/bin"),
                              QStringLiteral("/usr/bin"), home + QStringLiteral("/.opencode/bin"),
                              home + QStringLiteral("/.local/bin")}
                      .join(u':'));
    return directories;
}

QStringList candidatePaths(QuickTaskCLIBackend backend)
{
    return candidatePaths(backend, candidateDirectories());
}

QStringList candidatePaths(QuickTaskCLIBackend backend, const QStringList &directories)
{
    QStringList paths;
    const auto add = [&paths](const QString &path) {
        if (!path.isEmpty() && !paths.contains(path))
            paths.append(path);
    };
    const BackendProfile &profile = BackendProfiles::of(backend);
    if (const auto fallback = profile.fallbackExecutablePath())
        add(*fallback);
    add(qEnvironmentVariable(profile.overrideVariable().toLatin1().constData()));
    const QString name = profile.rawValue();
    for (const QString &directory : directories)
        add(QDir(directory).filePath(name));
    return paths;
}

QString resolveExecutableURL(QuickTaskCLIBackend backend)
{
    return resolveExecutableURL(backend, candidateDirectories());
}

QString resolveExecutableURL(QuickTaskCLIBackend backend, const QStringList &directories)
{
    for (const QString &path : candidatePaths(backend, directories)) {
        if (isExecutableFile(path))
            return path;
    }
    throw QuickTaskError::executableNotFound(backend);
}

QProcessEnvironment processEnvironment(QuickTaskCLIBackend)
{
    return processEnvironment(candidateDirectories());
}

QProcessEnvironment processEnvironment(const QStringList &directories)
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(QStringLiteral("PATH"), directories.join(u':'));
    return environment;
}

QString verifiedVersionString(QuickTaskCLIBackend backend, const QString &executable)
{
    return verifiedVersionString(backend, executable, processEnvironment(backend));
}

QString verifiedVersionString(QuickTaskCLIBackend backend, const QString &executable,
                              const QProcessEnvironment &environment)
{
    const BackendProfile &profile = BackendProfiles::of(backend);
    const QString title = profile.longTitle();
    const QString command = profile.versionCommandDisplay();

    ShortProcessResult result;
    try {
        result = ShortProcess::run(executable, profile.versionArguments(), environment, queryTimeLimit);
    } catch (const TarvelError &error) {
        throw QuickTaskError::versionCheckFailed(
            backend, QStringLiteral("%1 is installed but could not be started for verification: %2")
                         .arg(title, error.description()));
    }
    if (result.timedOut) {
        throw QuickTaskError::versionCheckFailed(
            backend,
            QStringLiteral("%1 did not respond to `%2`. Install or repair %1 so `%2` returns a version "
                           "string in Terminal.")
                .arg(title, command));
    }

    const QString output = profile.versionOutput(result.standardOutput, result.standardError);
    const QString shown = output.isEmpty() ? QStringLiteral("no output") : output;

    if (result.exitStatus != 0) {
        throw QuickTaskError::versionCheckFailed(
            backend, QStringLiteral("%1 failed verification with `%2`: %3").arg(title, command, shown));
    }
    if (!profile.isVersionAnswer(output)) {
        throw QuickTaskError::versionCheckFailed(
            backend,
            QStringLiteral("%1 returned an unexpected result for `%2`: %3").arg(title, command, shown));
    }
    return output;
}

QString checkedVersionString(QuickTaskCLIBackend backend, const QString &executable,
                             const QProcessEnvironment &environment, RememberedChecks remembered)
{
    // Taken before the check, so a file replaced while it runs is not credited with its answer.
    const std::optional<ExecutableIdentity> identity = ExecutableIdentity::of(executable);
    VersionCheckCache &cache = VersionCheckCache::shared();
    if (identity && remembered == RememberedChecks::trusted) {
        if (std::optional<QString> version = cache.version(backend, *identity))
            return *version;
    }
    try {
        const QString version = verifiedVersionString(backend, executable, environment);
        if (identity)
            cache.remember(backend, *identity, version);
        return version;
    } catch (const QuickTaskError &) {
        if (identity)
            cache.forget(identity->resolvedPath);
        throw;
    }
}

QuickTaskLaunchTarget launchTarget(QuickTaskCLIBackend backend)
{
    const QStringList directories = candidateDirectories();
    QuickTaskLaunchTarget target;
    target.executablePath = resolveExecutableURL(backend, directories);
    target.environment = processEnvironment(directories);
    target.version = checkedVersionString(backend, target.executablePath, target.environment);
    return target;
}

QFuture<QuickTaskLaunchTarget> prepareLaunch(QuickTaskCLIBackend backend)
{
    return runInBackground<QuickTaskLaunchTarget>([backend](auto &) { return launchTarget(backend); });
}

QuickTaskCLIInstallationAvailabilities checkInstallationAvailabilities(
    RememberedChecks remembered, std::optional<QuickTaskCLIBackend> preferred,
    const std::function<void(const QuickTaskCLIInstallationAvailability &)> &passedFirst)
{
    // One login-shell query serves all three; the version checks run side by side, so a
    // backend that hangs costs its time limit once, not once per backend.
    const QStringList directories = candidateDirectories();
    const QProcessEnvironment environment = processEnvironment(directories);
    std::vector<std::pair<QuickTaskCLIBackend, std::future<QuickTaskCLIInstallationAvailability>>> checks;
    for (const BackendProfile *profile : BackendProfiles::all()) {
        const QuickTaskCLIBackend backend = profile->backend();
        checks.emplace_back(
            backend, std::async(std::launch::async, [backend, &directories, &environment, remembered] {
                try {
                    const QString executable = resolveExecutableURL(backend, directories);
                    return QuickTaskCLIInstallationAvailability::available(
                        checkedVersionString(backend, executable, environment, remembered));
                } catch (const TarvelError &error) {
                    return QuickTaskCLIInstallationAvailability::unavailable(error.description());
                }
            }));
    }
    // The preferred backend is waited for first, so its pass is told before the slowest check ends.
    std::stable_partition(checks.begin(), checks.end(),
                          [preferred](const auto &check) { return check.first == preferred; });
    QuickTaskCLIInstallationAvailabilities availabilities;
    for (auto &[backend, check] : checks) {
        const QuickTaskCLIInstallationAvailability availability = check.get();
        if (backend == preferred && availability.isAvailable() && passedFirst)
            passedFirst(availability);
        availabilities.insert(backend, availability);
    }
    return availabilities;
}

QFuture<QuickTaskCLIInstallationAvailabilities> installationAvailabilities()
{
    return runInBackground<QuickTaskCLIInstallationAvailabilities>(
        [](auto &) { return checkInstallationAvailabilities(); });
}

QFuture<QuickTaskCLIInstallationAvailabilities> installationAvailabilities(QuickTaskCLIBackend preferred)
{
    return runInBackground<QuickTaskCLIInstallationAvailabilities>([preferred](auto &promise) {
        return checkInstallationAvailabilities(
            RememberedChecks::trusted, preferred, [&promise, preferred](const auto &availability) {
                promise.addResult(QuickTaskCLIInstallationAvailabilities{{preferred, availability}});
            });
    });
}

} // namespace TaskCLIExecutableLocator
