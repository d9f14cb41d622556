#pragma once

#include "editing/PathIndex.h"

#include <QFuture>
#include <QString>

#include <functional>
#include <memory>

// What a project folder holds, for the `@` completion list. In a git work tree it is what git
// offers to commit (`git ls-files --cached --others --exclude-standard`) and the folders that
// hold it; elsewhere a walk, shallow first, that skips hidden and build folders. Both stop at a
// bound. Nothing here fails: a folder that is gone or unreadable, or no git, gives fewer
// entries or none.
namespace ProjectFiles {

inline constexpr qsizetype defaultLimit = 50000;

struct Listing {
    QList<PathIndex::Entry> entries;
    bool truncated = false;
    bool fromGit = false;
};

// Lists on the calling thread, which must not be the main thread: it waits for git. stop, when
// given, is asked now and then whether the listing is still wanted.
Listing list(const QString &folder, qsizetype limit = defaultLimit, const std::function<bool()> &stop = {});

// The index of the folder, listed on a pool thread. Cancelling the future stops the listing.
QFuture<std::shared_ptr<PathIndex>> indexInBackground(const QString &folder, qsizetype limit = defaultLimit);

} // namespace ProjectFiles
