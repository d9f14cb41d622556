#include "editing/ProjectFiles.h"

#include "core/TarvelError.h"
#include "editing/BackgroundWork.h"
#include "platform/NonBlockingRead.h"
#include "quicktasks/ProcessSpawner.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QPromise>
#include <QSet>
#include <QStandardPaths>
#include <QThreadPool>

#include <cerrno>
#include <csignal>

#include <sys/wait.h>
#include <unistd.h>

namespace ProjectFiles {
namespace {

constexpr int kGitTimeLimitMs = 10000;
constexpr int kWalkTimeLimitMs = 5000;
constexpr int kWalkDepthLimit = 16;

// Folders a walk passes over besides hidden ones: what builds and package managers make.
const QSet<QString> &skippedFolders()
{
    static const QSet<QString> names{QStringLiteral("node_modules"), QStringLiteral("build"),
                                     QStringLiteral("dist"),         QStringLiteral("target"),
                                     QStringLiteral("out"),          QStringLiteral("__pycache__"),
                                     QStringLiteral("venv"),         QStringLiteral("DerivedData"),
                                     QStringLiteral("Pods"),         QStringLiteral("bower_components")};
    return names;
}

bool isBuildFolder(const QString &name)
{
    return skippedFolders().contains(name) || name.startsWith(QStringLiteral("cmake-build-")) ||
           name.startsWith(QStringLiteral("build-"));
}

bool insideGitWorkTree(const QString &folder)
{
    QDir directory(folder);
    while (true) {
        if (QFileInfo::exists(directory.filePath(QStringLiteral(".git"))))
            return true;
        if (!directory.cdUp())
            return false;
    }
}

// Adds a path and the folders above it that are not there yet; false once the limit is reached.
class EntryCollector final {
public:
    explicit EntryCollector(qsizetype limit)
        : m_limit(limit)
    {
    }

    bool addFile(const QString &path)
    {
        if (path.isEmpty() || m_files.contains(path))
            return !full();
        qsizetype slash = path.lastIndexOf(u'/');
        QStringList missing;
        while (slash > 0) {
            const QString folder = path.left(slash);
            if (m_folders.contains(folder))
                break;
            missing.prepend(folder);
            slash = folder.lastIndexOf(u'/');
        }
        for (const QString &folder : std::as_const(missing)) {
            if (full())
                return false;
            addFolder(folder);
        }
        if (full())
            return false;
        m_files.insert(path);
        listing.entries.append({path, false});
        return !full();
    }

    void addFolder(const QString &path)
    {
        m_folders.insert(path);
        listing.entries.append({path, true});
    }

    bool full() const { return listing.entries.size() >= m_limit; }

    Listing listing;

private:
    qsizetype m_limit;
    QSet<QString> m_files;
    QSet<QString> m_folders;
};

QProcessEnvironment gitEnvironment()
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    // Tarvel may have been started by an editor that git ran: its variables name that repository
    // and a temporary index, not the folder asked about.
    for (const QString &name : environment.keys()) {
        if (name.startsWith(QStringLiteral("GIT_")))
            environment.remove(name);
    }
    environment.insert(QStringLiteral("GIT_OPTIONAL_LOCKS"), QStringLiteral("0"));
    environment.insert(QStringLiteral("LC_ALL"), QStringLiteral("C"));
    return environment;
}

// What `git ls-files` lists; nothing when git is missing or refuses the folder.
std::optional<Listing> listWithGit(const QString &folder, qsizetype limit, const std::function<bool()> &stop)
{
    const QString git = QStandardPaths::findExecutable(QStringLiteral("git"));
    if (git.isEmpty())
        return std::nullopt;
    SpawnedProcess process;
    try {
        process = ProcessSpawner::spawnGroupLeader(git,
                                                   {QStringLiteral("ls-files"), QStringLiteral("-z"),
                                                    QStringLiteral("--cached"), QStringLiteral("--others"),
                                                    QStringLiteral("--exclude-standard")},
                                                   folder, gitEnvironment());
    } catch (const TarvelError &) {
        return std::nullopt;
    }
    EntryCollector collector(limit);
    QByteArray pending;
    const QDeadlineTimer deadline(kGitTimeLimitMs);
    bool complete = false;
    while (!collector.full() && !deadline.hasExpired() && !(stop && stop())) {
        if (!process.waitForOutput(std::chrono::milliseconds(50))) {
            complete = true;
            break;
        }
        NonBlockingRead::available(process.standardError, nullptr);
        NonBlockingRead::available(process.standardOutput, &pending);
        qsizetype start = 0;
        for (qsizetype end = pending.indexOf('\0'); end >= 0; end = pending.indexOf('\0', start)) {
            if (!collector.addFile(QFile::decodeName(pending.mid(start, end - start))))
                break;
            start = end + 1;
        }
        pending.remove(0, start);
    }
    // The whole group goes: a listing cut short is not waited for.
    if (!complete)
        ProcessSpawner::signalGroup(process.processIdentifier, SIGKILL);
    int status = 0;
    while (::waitpid(process.processIdentifier, &status, 0) < 0 && errno == EINTR) {
    }
    const bool succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (complete && !succeeded && collector.listing.entries.isEmpty())
        return std::nullopt;
    collector.listing.truncated = !complete;
    collector.listing.fromGit = true;
    return std::move(collector.listing);
}

Listing walk(const QString &folder, qsizetype limit, const std::function<bool()> &stop)
{
    EntryCollector collector(limit);
    const QDeadlineTimer deadline(kWalkTimeLimitMs);
    // Breadth first, so that a bound keeps the shallow entries.
    QList<std::pair<QString, int>> queue{{QString(), 0}};
    for (qsizetype next = 0; next < queue.size(); ++next) {
        if (collector.full() || deadline.hasExpired() || (stop && stop())) {
            collector.listing.truncated = true;
            break;
        }
        const auto [relative, depth] = queue.at(next);
        const QString absolute = relative.isEmpty() ? folder : folder + u'/' + relative;
        // Hidden entries are left out by the filter; links to folders are listed, not entered.
        QDirIterator entries(absolute, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::System);
        QStringList files;
        while (entries.hasNext()) {
            entries.next();
            const QFileInfo info = entries.fileInfo();
            const QString path = relative.isEmpty() ? info.fileName() : relative + u'/' + info.fileName();
            if (info.isDir() && !info.isSymLink()) {
                if (isBuildFolder(info.fileName()))
                    continue;
                if (collector.full())
                    break;
                collector.addFolder(path);
                if (depth + 1 < kWalkDepthLimit)
                    queue.append({path, depth + 1});
            } else {
                files.append(path);
            }
        }
        for (const QString &file : std::as_const(files)) {
            if (!collector.addFile(file))
                break;
        }
    }
    return std::move(collector.listing);
}

} // namespace

Listing list(const QString &folder, qsizetype limit, const std::function<bool()> &stop)
{
    if (folder.isEmpty() || !QFileInfo(folder).isDir())
        return {};
    if (insideGitWorkTree(folder)) {
        if (std::optional<Listing> listing = listWithGit(folder, limit, stop))
            return std::move(*listing);
    }
    return walk(folder, limit, stop);
}

QFuture<std::shared_ptr<PathIndex>> indexInBackground(const QString &folder, qsizetype limit)
{
    auto promise = std::make_shared<QPromise<std::shared_ptr<PathIndex>>>();
    QFuture<std::shared_ptr<PathIndex>> future = promise->future();
    promise->start();
    BackgroundWork::pool().start([promise, folder, limit] {
        Listing listing = list(folder, limit, [&promise] { return promise->isCanceled(); });
        if (!promise->isCanceled())
            promise->addResult(std::make_shared<PathIndex>(std::move(listing.entries), listing.truncated));
        promise->finish();
    });
    return future;
}

} // namespace ProjectFiles
