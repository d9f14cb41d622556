#include "composer/ScratchWindowFrameStore.h"

#include "composer/PanelPlacement.h"
#include "core/UserDefaults.h"

ScratchWindowFrameStore::ScratchWindowFrameStore(UserDefaults &defaults)
    : m_defaults(defaults)
{
}

QString ScratchWindowFrameStore::key()
{
    return QStringLiteral("ScratchWindowFrame");
}

void ScratchWindowFrameStore::save(const QRect &frame)
{
    m_defaults.setRect(key(), frame);
}

std::optional<QRect> ScratchWindowFrameStore::restoredFrame(const QRect &current,
                                                            const std::optional<QRect> &workArea) const
{
    const std::optional<QRectF> stored = m_defaults.rect(key());
    if (!stored)
        return std::nullopt;
    return PanelPlacement::restoredScratchFrame(*stored, current, workArea);
}
