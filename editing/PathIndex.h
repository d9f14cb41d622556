#pragma once

#include <QList>
#include <QString>
#include <QStringView>

#include <memory>

// The files and folders of a project, as paths relative to its folder, and the fuzzy search over
// them that the `@` completion list shows. Entries are kept shallow first, so an empty query
// offers the project's top level. A search for a query that extends the previous one looks only
// at the previous one's matches, which keeps typing a name fast on a large tree.
class PathIndex final {
public:
    struct Entry {
        QString path;
        bool isFolder = false;

        friend bool operator==(const Entry &, const Entry &) = default;
    };
    struct Match {
        qsizetype entry = 0;
        int score = 0;
    };

    PathIndex();
    // Sorts the entries shallow first, then by path.
    PathIndex(QList<Entry> entries, bool truncated);

    qsizetype size() const { return qsizetype(m_entries.size()); }
    const Entry &entry(qsizetype index) const { return m_entries.at(index); }
    // Whether the listing stopped at its bound, so some files are missing.
    bool isTruncated() const { return m_truncated; }

    // The best matches, best first; ties keep the index's order.
    QList<Match> search(QStringView query, qsizetype limit);

private:
    QList<Entry> m_entries;
    QList<QString> m_folded;
    QList<quint64> m_masks;
    bool m_truncated = false;
    // The previous search, for narrowing.
    QString m_lastQuery;
    QList<qsizetype> m_lastCandidates;
    bool m_hasLastSearch = false;
};
