#pragma once

#include "backends/QuickTaskCLIBackend.h"

#include <QHash>
#include <QString>

#include <mutex>
#include <optional>

// One executable file as it is on disk now: a check of it holds while all of this is the same.
struct ExecutableIdentity {
    QString resolvedPath; // links resolved
    qint64 size = 0;
    qint64 modified = 0; // milliseconds since the epoch
    quint64 device = 0;
    quint64 inode = 0;

    // Nothing when the file cannot be examined.
    static std::optional<ExecutableIdentity> of(const QString &executable);
    bool operator==(const ExecutableIdentity &) const = default;
};

// The backend version checks that passed, per executable, so that an unchanged backend is
// not asked again: kept for the life of the application and in the data folder across
// starts. A touched, replaced or removed file no longer matches and is checked again;
// failures are never kept, so a tool installed since shows up. Safe to use from the
// background threads the checks run on.
class VersionCheckCache final {
public:
    explicit VersionCheckCache(QString storagePath);

    // The application's cache, in the data folder. Its memory follows the data folder, so a
    // process that moves it (the tests do) never sees another folder's checks.
    static VersionCheckCache &shared();
    static QString defaultStoragePath();

    // The version the file printed when it was checked, if it is still the same file.
    std::optional<QString> version(QuickTaskCLIBackend backend, const ExecutableIdentity &identity);
    void remember(QuickTaskCLIBackend backend, const ExecutableIdentity &identity, const QString &version);
    void forget(const QString &resolvedPath);

private:
    struct Entry {
        QuickTaskCLIBackend backend;
        ExecutableIdentity identity;
        QString version;
    };

    void useStoragePath(const QString &path);
    void loadLocked();
    void saveLocked() const;

    std::mutex m_mutex;
    QString m_storagePath;
    bool m_loaded = false;
    QHash<QString, Entry> m_entries; // by resolved path
};
