#include "composer/ScratchWindowFrameStore.h"

#include "composer/PanelPlacement.h"
#include "core/UserDefaults.h"

#include <QRegularExpression>

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
    m_defaults.setString(key(), frameString(frame));
}

std::optional<QRect> ScratchWindowFrameStore::restoredFrame(const QRect &current,
                                                            const std::optional<QRect> &workArea) const
{
    const std::optional<QString> text = m_defaults.string(key());
    if (!text)
        return std::nullopt;
    const std::optional<QRectF> stored = parseFrameString(*text);
    if (!stored)
        return std::nullopt;
    return PanelPlacement::restoredScratchFrame(*stored, current, workArea);
}

QString ScratchWindowFrameStore::frameString(const QRectF &frame)
{
    const auto number = [](double value) {
        return QString::number(value, 'g', 15);
    };
    return QStringLiteral("{{%1, %2}, {%3, %4}}")
        .arg(number(frame.x()), number(frame.y()), number(frame.width()), number(frame.height()));
}

std::optional<QRectF> ScratchWindowFrameStore::parseFrameString(const QString &text)
{
    static const QString number =
        QStringLiteral(u"\\s*([-+]?(?:\\d+\\.?\\d*|\\.\\d+)(?:[eE][-+]?\\d+)?)\\s*");
    static const QRegularExpression pattern(
        QStringLiteral(u"^\\s*\\{\\s*\\{%1,%1\\}\\s*,\\s*\\{%1,%1\\}\\s*\\}\\s*$").arg(number));
    const QRegularExpressionMatch match = pattern.match(text);
    if (!match.hasMatch())
        return std::nullopt;
    return QRectF(match.captured(1).toDouble(), match.captured(2).toDouble(), match.captured(3).toDouble(),
                  match.captured(4).toDouble());
}
