#pragma once

#include "quicktasks/QuickTaskSession.h"

#include <QByteArrayView>
#include <QList>
#include <QString>
#include <QUuid>

// The quick-task files under one folder ("QuickTasks" in the base folder): sessions.json
// with every session, and per session Transcripts/<uuid>.txt and RawLogs/<uuid>.log.
// Folders are made when first needed, private to the user.
class QuickTaskStore final {
public:
    // The folder under the application's base folder.
    QuickTaskStore();
    explicit QuickTaskStore(QString directory);

    static QString defaultDirectory();

    const QString &directory() const noexcept { return m_directory; }
    QString sessionsURL() const;
    QString transcriptsDirectory() const;
    QString rawLogsDirectory() const;
    QString transcriptURL(const QUuid &id) const;
    QString rawLogURL(const QUuid &id) const;

    // What sessions.json holds. A missing or unreadable file gives none; a session that
    // cannot be decoded is left out and the others are kept.
    QList<QuickTaskSession> loadSessions() const;
    // Rewrites sessions.json whole. Throws SystemError.
    void saveSessions(const QList<QuickTaskSession> &sessions) const;

    // Starts the session's transcript with header and an empty raw log. Throws SystemError.
    void createSessionFiles(const QUuid &id, const QByteArray &transcriptHeader) const;
    // Each opens the file at its end, writes and closes it; false on failure.
    bool appendTranscript(const QUuid &id, QByteArrayView text) const;
    bool appendRawLog(const QUuid &id, QByteArrayView text) const;
    // The transcript and raw log; missing files are fine. Failures are ignored.
    void removeSessionFiles(const QUuid &id) const;

private:
    void ensureDirectory(const QString &path) const;

    QString m_directory;
};
