#include "core/DataFile.h"

#include "core/TarvelError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QTemporaryFile>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace DataFile {

void write(const QString &path, const QByteArray &data, QFileDevice::Permissions permissions, Sync sync)
{
    const QString operation = QStringLiteral("write \u201c%1\u201d").arg(QDir::toNativeSeparators(path));
    if (sync == Sync::none) {
        // The same temporary file and rename as QSaveFile, without its fsync.
        QTemporaryFile file(path + QStringLiteral(".XXXXXX"));
        if (!file.open() || !file.setPermissions(permissions) || file.write(data) != data.size() ||
            !file.flush())
            throw SystemError(operation, file.errorString());
        if (::rename(QFile::encodeName(file.fileName()).constData(), QFile::encodeName(path).constData()) !=
            0)
            throw SystemError(operation, errno);
        file.setAutoRemove(false);
        return;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw SystemError(operation, file.errorString());
    // Applies to the temporary file, so the target never exists with wider permissions.
    file.setPermissions(permissions);
    if (file.write(data) != data.size())
        throw SystemError(operation, file.errorString());
    if (!file.commit())
        throw SystemError(operation, file.errorString());
}

QByteArray read(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw SystemError(QStringLiteral("read \u201c%1\u201d").arg(QDir::toNativeSeparators(path)),
                          file.errorString());
    return file.readAll();
}

PlainFileContents readPlainFile(const QString &path, qint64 maximumSize, SymbolicLinks links)
{
    const QString operation = QStringLiteral("read \u201c%1\u201d").arg(QDir::toNativeSeparators(path));
    const int flags =
        O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC | (links == SymbolicLinks::refuse ? O_NOFOLLOW : 0);
    const int descriptor = ::open(QFile::encodeName(path).constData(), flags);
    if (descriptor < 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            return {PlainFileStatus::missing, {}};
        if (errno == ELOOP && links == SymbolicLinks::refuse)
            return {PlainFileStatus::symbolicLink, {}};
        throw SystemError(operation, errno);
    }
    QFile file;
    if (!file.open(descriptor, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(descriptor);
        throw SystemError(operation, file.errorString());
    }
    struct stat info {};
    if (::fstat(descriptor, &info) != 0)
        throw SystemError(QStringLiteral("examine \u201c%1\u201d").arg(QDir::toNativeSeparators(path)),
                          errno);
    if (!S_ISREG(info.st_mode))
        return {PlainFileStatus::notPlainFile, {}};
    if (info.st_size > maximumSize)
        return {PlainFileStatus::tooLarge, {}};
    // Sized by fstat (a read allocates what it is asked for), and bounded even when the file
    // grows meanwhile.
    QByteArray bytes = file.read(qMin(qint64(info.st_size), maximumSize) + 1);
    while (bytes.size() <= maximumSize) {
        const QByteArray more = file.read(maximumSize + 1 - bytes.size());
        if (more.isEmpty())
            break;
        bytes += more;
    }
    if (bytes.size() > maximumSize)
        return {PlainFileStatus::tooLarge, {}};
    if (file.error() != QFileDevice::NoError)
        throw SystemError(operation, file.errorString());
    return {PlainFileStatus::read, std::move(bytes)};
}

std::optional<QByteArray> readIfPlainFile(const QString &path, qint64 maximumSize)
{
    try {
        PlainFileContents contents = readPlainFile(path, maximumSize, SymbolicLinks::follow);
        if (contents.status == PlainFileStatus::read)
            return std::move(contents.bytes);
    } catch (const TarvelError &) {
    }
    return std::nullopt;
}

void removeIfExists(const QString &path)
{
    QFile file(path);
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink())
        return;
    if (!file.remove()) {
        if (!QFileInfo::exists(path))
            return; // someone else removed it first
        throw SystemError(QStringLiteral("remove \u201c%1\u201d").arg(QDir::toNativeSeparators(path)),
                          file.errorString());
    }
}

bool exists(const QString &path)
{
    return QFileInfo::exists(path);
}

} // namespace DataFile
