#pragma once

#include <QByteArray>
#include <QFile>
#include <QString>

// The file that the calling tool handed to its editor. It stays open from the first read
// to the last write, so the new text goes into the very file the caller holds.
class EditedFile final {
public:
    // Opens the file for reading and writing and reads it as UTF-8. Throws TarvelError.
    explicit EditedFile(const QString &path);

    QString absolutePath() const { return m_absolutePath; }
    const QString &text() const { return m_text; }

    // Truncates and rewrites in place (same inode). When the write fails, the original
    // bytes are put back as far as possible. Throws SystemError.
    void replaceText(const QString &text);
    void close() { m_file.close(); }

private:
    QString m_absolutePath;
    QFile m_file;
    QByteArray m_original;
    QString m_text;
};
