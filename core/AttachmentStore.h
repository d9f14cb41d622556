#pragma once

#include "core/PromptAttachment.h"

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QUuid>

// Tarvel's own copies of pasted images ("managed copies"), kept in one folder so that a
// backend can be handed a path, and deleted again once nothing holds them.
//
// Every holder (a quick-task session, an open scratch composer) says which attachments it
// holds now; a managed copy goes when its last holder lets go of it. A copy passed from one
// holder to another (a draft submitted as a session, a session retried in a composer) is
// held by both in between, so it cannot go missing. Files outside the folder, and files not
// marked as managed copies, are never deleted.
class AttachmentStore final {
public:
    // Where imported files go; not created by this call.
    static QString folder();

    // "Pasted Image 2026-03-01 09.15.42 3F2A9C.png": the local time of at, and a random
    // suffix so that two pastes in the same second differ.
    static QString uniqueFilename(const QDateTime &at = QDateTime::currentDateTime());

    // Writes encoded PNG bytes as a private file in the folder and returns it as a managed
    // copy, held by nobody yet. Throws SystemError when the folder or the file cannot be
    // written; nothing is left behind then.
    static PromptAttachment importPng(const QByteArray &png);

    // What holder holds from now on (replacing what it held before). Managed copies it let go
    // of that no other holder holds are deleted.
    void hold(const QUuid &holder, const QList<PromptAttachment> &attachments);
    // The same as holding nothing.
    void release(const QUuid &holder);

    bool isHeld(const QString &path) const;
    // Every path some holder holds now.
    QSet<QString> heldPaths() const;

    // Deletes the copies in the folder last changed before cutoff that nothing refers to: no path
    // in referenced, no mention in any of the texts (a path pasted into an editor's text lives on
    // in its draft). Pasted images that no composer, draft or session names would otherwise stay
    // for ever. Touches nothing else, and runs on any thread. Returns how many went.
    static int removeUnreferencedCopies(const QSet<QString> &referenced, const QStringList &texts,
                                        const QDateTime &cutoff);

private:
    QHash<QUuid, QSet<QString>> m_held;
};
