#pragma once

#include "core/JSONCoding.h"
#include "core/TarvelError.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QString>
#include <QTemporaryDir>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <optional>

// What the fuzz targets share: the input as bytes, a scratch folder, and the checks that turn a
// wrong answer into a crash libFuzzer keeps.
namespace Fuzz {

inline QByteArray bytes(const uint8_t *data, size_t size)
{
    return QByteArray(reinterpret_cast<const char *>(data), static_cast<qsizetype>(size));
}

inline void require(bool condition, const char *what)
{
    if (condition)
        return;
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

// A folder of the process's own, removed at exit.
inline QString scratchFolder()
{
    static QTemporaryDir folder;
    require(folder.isValid(), "a scratch folder");
    return folder.path();
}

// Writes input to the file at path under the scratch folder, making its folder first.
inline QString writeScratchFile(const QString &path, const QByteArray &input)
{
    const QString filePath = QDir(scratchFolder()).filePath(path);
    QDir().mkpath(QFileInfo(filePath).path());
    QFile file(filePath);
    require(file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(input) == input.size(),
            "writing a scratch file");
    return filePath;
}

// A record that decodes must be written in a form that decodes to the same record, or what the
// application writes back would not be what it read.
template<typename T> std::optional<T> checkRoundTrip(const QByteArray &input)
{
    std::optional<T> record;
    try {
        record = JSONCoding::decodeRecord<T>(input);
    } catch (const TarvelError &) {
        return std::nullopt;
    }
    const QByteArray written = JSONCoding::encodeRecord(*record);
    std::optional<T> reread;
    try {
        reread = JSONCoding::decodeRecord<T>(written);
    } catch (const TarvelError &error) {
        std::fprintf(stderr, "%s\n%s\n", written.constData(), qPrintable(error.description()));
        require(false, "a written record decodes");
    }
    require(JSONCoding::encodeRecord(*reread) == written, "a written record reads back the same");
    return record;
}

} // namespace Fuzz
