#pragma once

#include <QString>
#include <QUuid>

// The folder tree shared with tarvel-edit. Every location is computed on each call, so
// HOME and XDG_DATA_HOME can be redirected at run time.
namespace FileStore {

QString baseDirectory();
QString requestsDirectory();
QString responsesDirectory();
QString completedRequestsDirectory();
QString malformedRequestsDirectory();

QString requestURL(const QUuid &id);
QString responseURL(const QUuid &id);
QString completedRequestMarkerURL(const QUuid &id);
// A fresh quarantine destination for a bad request file: <stem>-invalid-<NEW UUID>.json.
QString malformedRequestURL(const QString &badFile);

// Creates the base folder and its four subfolders, private to the user. Throws SystemError,
// or UnsafeFolderError when one of them is a link, another user's, or writable by others.
void ensureDirectoriesExist();
// Throws UnsafeFolderError when the folder at path (not followed if a link) is one that
// someone else could change; SystemError when it cannot be examined.
void verifyPrivateFolder(const QString &path);
// Creates one folder below the base folder (and the base folder), private to the user.
QString ensureSubdirectoryExists(const QString &name);
// Creates the folder at path, private to the user, and any missing folder above it as usual.
// Throws SystemError.
void ensurePrivateFolder(const QString &path);

} // namespace FileStore
