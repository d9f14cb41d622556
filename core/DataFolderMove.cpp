#include "core/DataFolderMove.h"

#include "core/AppConstants.h"
#include "core/DataFile.h"
#include "core/FileStore.h"
#include "core/JSONCoding.h"
#include "core/TarvelError.h"
#include "platform/FileSystemPlatform.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>
#include <QUuid>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr qint64 kMaximumNotesSize = 1024 * 1024;

QString shown(const QString &path)
{
    return QDir::toNativeSeparators(path);
}

QByteArray encoded(const QString &path)
{
    return QFile::encodeName(path);
}

QString unrecordedMovesPath()
{
    return QDir(FileStore::baseDirectory()).filePath(QStringLiteral(".moves-to-record.json"));
}

// A real folder of the user's, not a link, with the request folders every Tarvel made at its
// first start; a folder of the user's own that happens to be called Tarvel is left alone.
bool looksLikeTarvels(const QString &folder)
{
    struct stat info {};
    if (::lstat(encoded(folder).constData(), &info) != 0 || !S_ISDIR(info.st_mode) ||
        info.st_uid != ::geteuid())
        return false;
    const QStringList requestFolders{FileStore::requestsDirectory(), FileStore::responsesDirectory(),
                                     FileStore::completedRequestsDirectory(),
                                     FileStore::malformedRequestsDirectory()};
    return std::all_of(requestFolders.begin(), requestFolders.end(), [&folder](const QString &path) {
        return QFileInfo(QDir(folder).filePath(QFileInfo(path).fileName())).isDir();
    });
}

bool sameFolder(const QString &a, const QString &b)
{
    struct stat first {
    }, second{};
    return ::stat(encoded(a).constData(), &first) == 0 && ::stat(encoded(b).constData(), &second) == 0 &&
           first.st_dev == second.st_dev && first.st_ino == second.st_ino;
}

// Serialises the moves of every process and the application's taking of what they did.
class DataHomeLock final {
public:
    explicit DataHomeLock(const QString &folder)
        : m_descriptor(::open(encoded(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC))
    {
        // Without the lock the moves still never replace anything; they may only both try.
        while (m_descriptor >= 0 && ::flock(m_descriptor, LOCK_EX) != 0 && errno == EINTR) {
        }
    }
    ~DataHomeLock()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    DataHomeLock(const DataHomeLock &) = delete;
    DataHomeLock &operator=(const DataHomeLock &) = delete;

private:
    int m_descriptor;
};

// What Tarvel keeps (folders, plain files, links), with their permissions; a FIFO or a device
// is no data and is left out. Throws SystemError.
void copyTree(const QString &from, const QString &to)
{
    struct stat info {};
    if (::lstat(encoded(from).constData(), &info) != 0)
        throw SystemError(QStringLiteral("examine \u201c%1\u201d").arg(shown(from)), errno);
    if (S_ISDIR(info.st_mode)) {
        if (::mkdir(encoded(to).constData(), (info.st_mode & 07777) | S_IRWXU) != 0)
            throw SystemError(QStringLiteral("create the folder \u201c%1\u201d").arg(shown(to)), errno);
        const QDir folder(from);
        for (const QString &name :
             folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot))
            copyTree(folder.filePath(name), QDir(to).filePath(name));
    } else if (S_ISLNK(info.st_mode)) {
        char target[PATH_MAX];
        const ssize_t length = ::readlink(encoded(from).constData(), target, sizeof target);
        if (length < 0 || ::symlink(QByteArray(target, length).constData(), encoded(to).constData()) != 0)
            throw SystemError(QStringLiteral("copy the link \u201c%1\u201d").arg(shown(from)), errno);
    } else if (S_ISREG(info.st_mode)) {
        QFile file(from);
        if (!file.copy(to))
            throw SystemError(
                QStringLiteral("copy \u201c%1\u201d to \u201c%2\u201d").arg(shown(from), shown(to)),
                file.errorString());
    }
}

bool removeTree(const QString &path)
{
    const QFileInfo info(path);
    return info.isDir() && !info.isSymLink() ? QDir(path).removeRecursively() : QFile::remove(path);
}

bool renamedWithoutReplacing(const QString &from, const QString &to)
{
    return FileSystemPlatform::renameWithoutReplacing(encoded(from).constData(), encoded(to).constData()) ==
           0;
}

enum class EntryMove { moved, present, gone, failed };

struct Moving {
    QString failure;           // the first failure, as a sentence
    bool copiesRemain = false; // a source copied across file systems could not be removed entirely

    EntryMove move(const QString &from, const QString &to)
    {
        if (renamedWithoutReplacing(from, to))
            return EntryMove::moved;
        switch (errno) {
        case EEXIST:
        case ENOTEMPTY:
            return EntryMove::present;
        case ENOENT:
            return EntryMove::gone; // another process took it
        case EXDEV:
            return copyAcross(from, to);
        default:
            return fail(SystemError(
                QStringLiteral("move \u201c%1\u201d to \u201c%2\u201d").arg(shown(from), shown(to)), errno));
        }
    }

    // A copy beside the destination, renamed into place, so the destination is never half there.
    EntryMove copyAcross(const QString &from, const QString &to)
    {
        const QFileInfo destination(to);
        const QString copy =
            destination.dir().filePath(u'.' + destination.fileName() + QStringLiteral(".moving-") +
                                       QUuid::createUuid().toString(QUuid::WithoutBraces));
        try {
            copyTree(from, copy);
        } catch (const TarvelError &error) {
            removeTree(copy);
            return fail(error);
        }
        if (!renamedWithoutReplacing(copy, to)) {
            const int error = errno;
            removeTree(copy);
            if (error == EEXIST || error == ENOTEMPTY)
                return EntryMove::present;
            return fail(SystemError(
                QStringLiteral("move \u201c%1\u201d to \u201c%2\u201d").arg(shown(copy), shown(to)), error));
        }
        if (!removeTree(from))
            copiesRemain = true;
        return EntryMove::moved;
    }

    EntryMove fail(const TarvelError &error)
    {
        if (failure.isEmpty())
            failure = error.description();
        return EntryMove::failed;
    }
};

std::optional<DataFolderMove> describe(const QString &from, const QString &to, bool whole,
                                       const QStringList &moved, const QStringList &present,
                                       const Moving &moving)
{
    if (!whole && moved.isEmpty() && moving.failure.isEmpty())
        return std::nullopt;
    DataFolderMove move;
    if (!whole && moved.isEmpty()) {
        move.title = QStringLiteral("Tarvel's data could not be moved to \u201c%1\u201d.").arg(shown(to));
        move.detail =
            QStringLiteral("It stays in \u201c%1\u201d, where Tarvel no longer looks. %2 Quit Tarvel and "
                           "move it there yourself.")
                .arg(shown(from), moving.failure);
        return move;
    }
    move.title = QStringLiteral("Tarvel's data moved to \u201c%1\u201d.").arg(shown(to));
    move.detail =
        whole ? QStringLiteral("Tarvel keeps its data in \u201c%1\u201d now; everything in \u201c%2\u201d "
                               "was moved there.")
                    .arg(shown(to), shown(from))
              : QStringLiteral("Moved from \u201c%1\u201d: %2.")
                    .arg(shown(from), moved.join(QStringLiteral(", ")));
    if (!present.isEmpty())
        move.detail += QStringLiteral(" \u201c%1\u201d already had %2, so those stay in \u201c%3\u201d.")
                           .arg(shown(to), present.join(QStringLiteral(", ")), shown(from));
    if (!moving.failure.isEmpty())
        move.detail +=
            u' ' + moving.failure + QStringLiteral(" The rest stays in \u201c%1\u201d.").arg(shown(from));
    if (moving.copiesRemain)
        move.detail +=
            QStringLiteral(" Some of what was copied could not be removed from \u201c%1\u201d; remove it "
                           "yourself.")
                .arg(shown(from));
    return move;
}

QList<DataFolderMove> readUnrecorded()
{
    QList<DataFolderMove> moves;
    const std::optional<QByteArray> bytes =
        DataFile::readIfPlainFile(unrecordedMovesPath(), kMaximumNotesSize);
    if (!bytes)
        return moves;
    try {
        for (const QJsonValue &value : JSONCoding::decodeArray(*bytes)) {
            const QJsonObject object = value.toObject();
            moves.append({object.value(QStringLiteral("title")).toString(),
                          object.value(QStringLiteral("detail")).toString()});
        }
    } catch (const TarvelError &) {
    }
    return moves;
}

// Kept until the application takes it; the same story twice (a failure met again) once.
void keepUnrecorded(const DataFolderMove &move)
{
    QList<DataFolderMove> moves = readUnrecorded();
    if (moves.contains(move))
        return;
    moves.append(move);
    QJsonArray array;
    for (const DataFolderMove &each : moves)
        array.append(
            QJsonObject{{QStringLiteral("title"), each.title}, {QStringLiteral("detail"), each.detail}});
    try {
        FileStore::ensurePrivateFolder(FileStore::baseDirectory());
        DataFile::write(unrecordedMovesPath(), JSONCoding::encode(array));
    } catch (const TarvelError &) {
        // The move is done; only its mention is lost.
    }
}

} // namespace

std::optional<DataFolderMove> DataFolderMove::fromHomeFolder()
{
    const QString from = QDir::cleanPath(QDir(QDir::homePath()).filePath(AppConstants::appName));
    const QString to = QDir::cleanPath(FileStore::baseDirectory());
    if (to == from || to.startsWith(from + u'/') || !looksLikeTarvels(from))
        return std::nullopt;
    const QString dataHome = QFileInfo(to).absolutePath();
    Moving moving;
    errno = 0;
    if (!QDir().mkpath(dataHome)) {
        moving.fail(SystemError(QStringLiteral("create the folder \u201c%1\u201d").arg(shown(dataHome)),
                                errno != 0 ? errno : EACCES));
        return describe(from, to, false, {}, {}, moving);
    }

    const DataHomeLock lock(dataHome);
    // Another process may have moved it while this one waited.
    if (!looksLikeTarvels(from) || sameFolder(from, to))
        return std::nullopt;
    bool whole = false;
    QStringList moved;
    QStringList present;
    switch (moving.move(from, to)) {
    case EntryMove::moved:
        whole = true;
        break;
    case EntryMove::gone:
        return std::nullopt;
    case EntryMove::failed:
        break;
    case EntryMove::present:
        // The data folder exists (tarvel-edit may have made its request folders in it first).
        for (const QString &name : QDir(from).entryList(
                 QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot, QDir::Name)) {
            const EntryMove entry = moving.move(QDir(from).filePath(name), QDir(to).filePath(name));
            if (entry == EntryMove::moved)
                moved.append(name);
            else if (entry == EntryMove::present)
                present.append(name);
        }
        if (present.isEmpty() && moving.failure.isEmpty())
            ::rmdir(encoded(from).constData());
        break;
    }
    const std::optional<DataFolderMove> move = describe(from, to, whole, moved, present, moving);
    if (move)
        keepUnrecorded(*move);
    return move;
}

QList<DataFolderMove> DataFolderMove::takeUnrecorded()
{
    const QString path = unrecordedMovesPath();
    const DataHomeLock lock(QFileInfo(FileStore::baseDirectory()).absolutePath());
    const QList<DataFolderMove> moves = readUnrecorded();
    try {
        DataFile::removeIfExists(path);
    } catch (const TarvelError &) {
        return {}; // told next time rather than every time
    }
    return moves;
}
