#pragma once

#include "errorlog/ErrorLogEntry.h"

#include <QList>
#include <QObject>

class Clock;

// The problems Tarvel met in the background, newest first, kept in Errors/errors.json
// until the user dismisses them. The log never reports its own failures: a file that
// cannot be written leaves the in-memory entries authoritative.
class ErrorLogManager final : public QObject {
    Q_OBJECT

public:
    static constexpr qsizetype maximumEntries = 100;

    explicit ErrorLogManager(const Clock &clock, QObject *parent = nullptr);

    // The application's one instance.
    static ErrorLogManager &shared();

    static QString storageURL();

    // Replaces the entries with what the file holds; an unreadable file leaves the log empty.
    void load();

    const QList<ErrorLogEntry> &entries() const { return m_entries; }
    // Adds an entry unless the newest one already says the same (title, detail and source).
    void record(const QString &title, const QString &detail, const QString &source);
    void dismiss(const QUuid &id);

Q_SIGNALS:
    void errorLogDidChange();

private:
    void save() const;

    const Clock &m_clock;
    QList<ErrorLogEntry> m_entries;
};
