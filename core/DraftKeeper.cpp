#include "core/DraftKeeper.h"

#include "core/TarvelError.h"

DraftKeeper::DraftKeeper(DraftStore store, QString name, std::function<QString()> text,
                         std::function<QList<PromptAttachment>()> attachments, QObject *parent)
    : QObject(parent)
    , m_store(std::move(store))
    , m_name(std::move(name))
    , m_text(std::move(text))
    , m_attachments(std::move(attachments))
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(saveDelayMs);
    connect(&m_timer, &QTimer::timeout, this, &DraftKeeper::saveNow);
}

void DraftKeeper::noteChange()
{
    if (!m_discarded && !m_timer.isActive())
        m_timer.start();
}

void DraftKeeper::saveNow()
{
    m_timer.stop();
    if (m_discarded)
        return;
    const QString text = m_text();
    const QList<PromptAttachment> attachments = m_attachments ? m_attachments() : QList<PromptAttachment>();
    if (text.trimmed().isEmpty() && attachments.isEmpty()) {
        m_store.remove(m_name); // nothing worth offering again
        return;
    }
    try {
        m_store.save(m_name, text, attachments);
    } catch (const TarvelError &) {
        // The composer keeps the text; only the safety net is missing.
    }
}

void DraftKeeper::discard()
{
    m_discarded = true;
    m_timer.stop();
    m_store.remove(m_name);
}
