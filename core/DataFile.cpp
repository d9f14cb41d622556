#include "core/DataFile.h"

#include "core/TarvelError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cerrno>

namespace DataFile {

void write(const QString &path, const QByteArray &data, QFileDevice::Permissions permissions)
{
    const QString operation = QStringLiteral("write \u201c%1\u201d").arg(QDir::toNativeSeparators(path));
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
        throw SystemError(QStringLiteral("read \u201c%1\u201d").arg(QDir::toNativeSeparators(path)), file.errorString());
    return file.readAll();
}

void removeIfExists(const QString &path)
{
    QFile file(path);
    if (!QFileInfo::exists(path) && !QFileInfo(path).isSymLink())
        return;
    if (!file.remove()) {
        if (!QFileInfo::exists(path))
            return; // someone else removed it first
        throw SystemError(QStringLiteral("remove \u201c%1\u201d").arg(QDir::toNativeSeparators(path)), file.errorString());
    }
}

bool exists(const QString &path)
{
    return QFileInfo::exists(path);
}

} // namespace DataFile
