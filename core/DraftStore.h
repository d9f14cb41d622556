#pragma once

#include "core/PromptAttachment.h"

#include <QList>
#include <QSet>
#include <QString>
#include <QUuid>

#include <optional>

// What a composer holds, kept on disk while it is open so that a crash does not take it: one file
// per composer in the Drafts folder, private to the user and written whole, with a second one
// beside it for a scratch composer's attachments. An editor request's
// draft is named after the request, so the copy that serves the request after a restart finds it;
// a scratch composer's after an id of its own. Failures to write are the caller's to ignore: a
// draft is a safety net, never a reason to stop typing.
class DraftStore final {
public:
    // The Drafts folder of the data folder.
    DraftStore();
    explicit DraftStore(QString folder);

    static QString requestDraftName(const QUuid &requestId);
    static QString scratchDraftName(const QUuid &composerId);

    struct Draft {
        QString text;
        QList<PromptAttachment> attachments;
    };

    // Throws SystemError. Attachments are written beside the text, or removed when there are none.
    void save(const QString &name, const QString &text,
              const QList<PromptAttachment> &attachments = {}) const;
    std::optional<QString> load(const QString &name) const;
    QList<PromptAttachment> loadAttachments(const QString &name) const;
    void remove(const QString &name) const;

    // The newest scratch draft that is not one of these, taken out of the store.
    std::optional<Draft> takeNewestScratchDraft(const QList<QUuid> &openComposers) const;
    // The paths of every attachment a draft keeps.
    QSet<QString> attachmentPaths() const;
    // Every draft's text.
    QStringList texts() const;
    // Request drafts whose request is no longer waiting.
    void removeRequestDraftsExcept(const QList<QUuid> &waitingRequests) const;

    QString folder() const { return m_folder; }

private:
    QString path(const QString &name) const;
    QString attachmentsPath(const QString &name) const;

    QString m_folder;
};
