#pragma once

#include "core/DraftStore.h"

#include <QObject>
#include <QTimer>

#include <functional>

// Keeps one composer's draft: a change starts a one-second countdown (later changes do not restart
// it), so the file is at most about a second behind the typing and nothing is written while
// nothing changes.
class DraftKeeper final : public QObject {
    Q_OBJECT

public:
    // attachments, when given, are kept with the text.
    DraftKeeper(DraftStore store, QString name, std::function<QString()> text,
                std::function<QList<PromptAttachment>()> attachments = {}, QObject *parent = nullptr);

    static constexpr int saveDelayMs = 1000;

    // The text or the attachments changed.
    void noteChange();
    // Writes now (a restored draft is kept under its new name before anything is typed).
    void saveNow();
    // The text was handed over or given up: no more writes, and the file goes.
    void discard();
    const QString &name() const { return m_name; }

private:
    DraftStore m_store;
    QString m_name;
    std::function<QString()> m_text;
    std::function<QList<PromptAttachment>()> m_attachments;
    QTimer m_timer;
    bool m_discarded = false;
};
