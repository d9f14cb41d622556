#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringView>

#include <optional>

class Clock;

struct PromptHistoryEntry {
    QString text;
    // The folder the prompt was written for: the request's, or the quick task's.
    std::optional<QString> cwd;
    QDateTime date;

    friend bool operator==(const PromptHistoryEntry &, const PromptHistoryEntry &) = default;
};

// Every prompt the user submitted, editor or quick task, with its folder and time, so that a
// composer can recall and search them. One JSON file in the data folder, private to the user
// and written whole before record() returns (so a prompt answered is a prompt kept, even if
// Tarvel is killed right after). It keeps the newest prompts within a bound of entries and of
// bytes; a prompt larger than the whole bound is not kept. A file that cannot be read is put
// aside under a name of its own rather than written over.
class PromptHistory final {
public:
    static constexpr qsizetype maximumEntries = 1000;
    static constexpr qsizetype maximumBytes = 5 * 1024 * 1024;

    // The data folder's store.
    PromptHistory();
    explicit PromptHistory(QString path, const Clock &clock);

    QString path() const { return m_path; }

    // Keeps a submitted prompt as the newest entry; an equal earlier prompt of the same folder
    // gives way to it. Blank text is not kept. Throws SystemError when it cannot be written.
    void record(const QString &text, const std::optional<QString> &cwd);
    // Empties the store. Throws SystemError.
    void clear();

    // Newest first.
    QList<PromptHistoryEntry> entries() const;
    // The texts of one folder's prompts, newest first.
    QStringList prompts(const std::optional<QString> &cwd) const;
    // Prompts whose text holds every word of the query as a close fuzzy match: the folder's own
    // first, then the best matches, then the newest. An empty query lists them all that way.
    QList<PromptHistoryEntry> search(QStringView query, const std::optional<QString> &cwd,
                                     qsizetype limit) const;

    // The file's form, oldest entry first. decode() skips entries it cannot read and keeps the
    // newest within the bounds; a file that is not a history throws DecodingError.
    static QList<PromptHistoryEntry> decode(const QByteArray &data);
    static QByteArray encode(const QList<PromptHistoryEntry> &oldestFirst);
    // The newest entries of the list (oldest first) that fit the bounds.
    static QList<PromptHistoryEntry> bounded(QList<PromptHistoryEntry> oldestFirst);

private:
    void load() const;
    void save(QList<PromptHistoryEntry> oldestFirst, QList<qsizetype> sizes);

    QString m_path;
    const Clock &m_clock;
    // Oldest first, as read at the last load or write, and when the file then looked as it did.
    mutable QList<PromptHistoryEntry> m_entries;
    // What each entry adds to the file, so a new prompt does not encode the others to count.
    mutable QList<qsizetype> m_sizes;
    mutable QDateTime m_loadedModified;
    mutable qint64 m_loadedSize = -1;
};
