#pragma once

#include <QList>
#include <QString>

#include <optional>

// Tarvel once kept its data in ~/Tarvel while ~/.local/share did not exist, and switched to the
// data folder as soon as it did. The data folder is now always FileStore::baseDirectory(); an
// old ~/Tarvel is moved there once, by whichever of the application and tarvel-edit runs first.
// What a move did is kept beside the data until the application puts it in the error log.
struct DataFolderMove {
    // Says where the data went.
    QString title;
    QString detail;

    friend bool operator==(const DataFolderMove &, const DataFolderMove &) = default;

    // Moves ~/Tarvel into the data folder when it is a real folder of the user's with Tarvel's
    // request folders in it: one rename of the whole folder when the data folder does not exist
    // yet, else each entry the data folder lacks, leaving the others where they are. Across file
    // systems an entry is copied beside its destination, renamed into place and only then
    // removed at the source. Nothing is ever replaced. Several processes may call it at once.
    // Returns what it did, nothing when there was nothing to move; never throws. Call it before
    // anything reads or makes the data folder.
    static std::optional<DataFolderMove> fromHomeFolder();
    // The moves made since the last call, by this process or another, oldest first.
    static QList<DataFolderMove> takeUnrecorded();
};
