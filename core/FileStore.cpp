#include "core/FileStore.h"

#include "core/AppConstants.h"
#include "core/ExchangeNames.h"
#include "core/JSONCoding.h"
#include "core/TarvelError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>

namespace FileStore {
namespace {

constexpr QFileDevice::Permissions kPrivateFolder =
    QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner;

QString fileName(const QUuid &id, const QString &extension)
{
    return JSONCoding::encodeUuid(id) + extension;
}

void makeFolder(const QString &path, bool privateToUser)
{
    // A link is never followed here: verifyPrivateFolder refuses it afterwards.
    if (QFileInfo(path).isDir() || QFileInfo(path).isSymLink())
        return;
    errno = 0;
    const bool made = privateToUser ? QDir().mkdir(path, kPrivateFolder) : QDir().mkpath(path);
    if (!made && !QFileInfo(path).isDir()) {
        const QString operation =
            QStringLiteral("create the folder \u201c%1\u201d").arg(QDir::toNativeSeparators(path));
        throw SystemError(operation, errno != 0 ? errno : EACCES);
    }
}

} // namespace

QString baseDirectory()
{
    // The platform's per-user data folder (XDG data home, Application Support), whether it
    // exists yet or not: the folder never moves once files are in it.
    return QDir(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation))
        .filePath(AppConstants::appName);
}

QString requestsDirectory()
{
    return QDir(baseDirectory()).filePath(QString::fromLatin1(ExchangeNames::requestsFolder));
}
QString responsesDirectory()
{
    return QDir(baseDirectory()).filePath(QString::fromLatin1(ExchangeNames::responsesFolder));
}
QString completedRequestsDirectory()
{
    return QDir(baseDirectory()).filePath(QString::fromLatin1(ExchangeNames::completedRequestsFolder));
}
QString malformedRequestsDirectory()
{
    return QDir(baseDirectory()).filePath(QString::fromLatin1(ExchangeNames::malformedRequestsFolder));
}

QString requestURL(const QUuid &id)
{
    return QDir(requestsDirectory()).filePath(fileName(id, QStringLiteral(".json")));
}
QString responseURL(const QUuid &id)
{
    return QDir(responsesDirectory()).filePath(fileName(id, QStringLiteral(".json")));
}

QString completedRequestMarkerURL(const QUuid &id)
{
    return QDir(completedRequestsDirectory()).filePath(fileName(id, QStringLiteral(".done")));
}

QString malformedRequestURL(const QString &badFile)
{
    const QString stem = QFileInfo(badFile).completeBaseName();
    return QDir(malformedRequestsDirectory())
        .filePath(stem + QStringLiteral("-invalid-") + JSONCoding::encodeUuid(QUuid::createUuid()) +
                  QStringLiteral(".json"));
}

void ensureDirectoriesExist()
{
    const QString base = baseDirectory();
    makeFolder(QFileInfo(base).absolutePath(), false);
    makeFolder(base, true);
    verifyPrivateFolder(base);
    for (const QString &folder : {requestsDirectory(), responsesDirectory(), completedRequestsDirectory(),
                                  malformedRequestsDirectory()}) {
        makeFolder(folder, true);
        verifyPrivateFolder(folder);
    }
}

void verifyPrivateFolder(const QString &path)
{
    const QString shown = QDir::toNativeSeparators(path);
    struct stat info {};
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0)
        throw SystemError(QStringLiteral("examine the folder \u201c%1\u201d").arg(shown), errno);
    if (S_ISLNK(info.st_mode)) {
        throw UnsafeFolderError(
            QStringLiteral("Tarvel will not exchange requests through \u201c%1\u201d because "
                           "it is a symbolic link; remove the link with rm '%1' and Tarvel "
                           "will create a private folder in its place.")
                .arg(shown));
    }
    if (info.st_uid != ::geteuid()) {
        throw UnsafeFolderError(
            QStringLiteral("Tarvel will not exchange requests through \u201c%1\u201d because "
                           "it belongs to another user; move it aside with mv '%1' '%1.old' "
                           "and Tarvel will create a private folder in its place.")
                .arg(shown));
    }
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
        throw UnsafeFolderError(
            QStringLiteral("Tarvel will not exchange requests through \u201c%1\u201d because "
                           "other users can change it; make it private with chmod 700 '%1'.")
                .arg(shown));
    }
}

QString ensureSubdirectoryExists(const QString &name)
{
    const QString base = baseDirectory();
    ensurePrivateFolder(base);
    const QString folder = QDir(base).filePath(name);
    makeFolder(folder, true);
    return folder;
}

void ensurePrivateFolder(const QString &path)
{
    makeFolder(QFileInfo(path).absolutePath(), false);
    makeFolder(path, true);
}

} // namespace FileStore
