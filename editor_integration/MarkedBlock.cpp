#include "editor_integration/MarkedBlock.h"

#include "core/DataFile.h"
#include "core/TarvelError.h"

#include <QDir>
#include <QFileInfo>

namespace MarkedBlock {

QByteArray readFile(const QString &path)
{
    const QString shown = QDir::toNativeSeparators(path);
    DataFile::PlainFileContents contents =
        DataFile::readPlainFile(path, maximumFileSize, DataFile::SymbolicLinks::follow);
    switch (contents.status) {
    case DataFile::PlainFileStatus::read:
    case DataFile::PlainFileStatus::missing:
        break;
    case DataFile::PlainFileStatus::symbolicLink:
    case DataFile::PlainFileStatus::notPlainFile:
        throw TarvelError(QStringLiteral("\u201c%1\u201d is not a plain file.").arg(shown));
    case DataFile::PlainFileStatus::tooLarge:
        throw TarvelError(QStringLiteral("\u201c%1\u201d is larger than %2 MB.")
                              .arg(shown)
                              .arg(maximumFileSize / (1024 * 1024)));
    }
    return std::move(contents.bytes);
}

void writeFile(const QString &path, const QByteArray &bytes, QFileDevice::Permissions newFilePermissions)
{
    QFileInfo info(path);
    const QString target = info.isSymLink() && info.exists() ? info.canonicalFilePath() : path;
    info = QFileInfo(target);
    if (info.exists() && !info.isWritable())
        throw TarvelError(QStringLiteral("You do not have permission to change \u201c%1\u201d.")
                              .arg(QDir::toNativeSeparators(target)));
    if (!QDir().mkpath(info.path()))
        throw TarvelError(QStringLiteral("The folder \u201c%1\u201d could not be made.")
                              .arg(QDir::toNativeSeparators(info.path())));
    DataFile::write(target, bytes, info.isFile() ? info.permissions() : newFilePermissions);
}

std::optional<std::pair<qsizetype, qsizetype>> range(const QByteArray &text, const QByteArray &beginMarker,
                                                     const QByteArray &endMarker)
{
    const auto atLineStart = [&text](qsizetype at) {
        return at == 0 || text.at(at - 1) == '\n';
    };
    for (qsizetype close = text.indexOf(endMarker); close >= 0; close = text.indexOf(endMarker, close + 1)) {
        if (!atLineStart(close))
            continue;
        qsizetype open = text.lastIndexOf(beginMarker, close);
        while (open >= 0 && !atLineStart(open))
            open = open == 0 ? -1 : text.lastIndexOf(beginMarker, open - 1);
        if (open < 0)
            return std::nullopt;
        const qsizetype lineEnd = text.indexOf('\n', close);
        return std::pair{open, lineEnd < 0 ? text.size() : lineEnd + 1};
    }
    return std::nullopt;
}

QByteArray appended(const QByteArray &text, const QByteArray &block)
{
    if (text.isEmpty())
        return block;
    return text + (text.endsWith('\n') ? "\n" : "\n\n") + block;
}

} // namespace MarkedBlock
