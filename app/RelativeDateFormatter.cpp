#include "app/RelativeDateFormatter.h"

#include <QList>

#include <cstdlib>

namespace RelativeDateFormatter {
namespace {

struct Unit {
    qint64 seconds;
    const char16_t *singular;
    const char16_t *plural;
};

QString phrase(qint64 count, const Unit &unit)
{
    return QStringLiteral("%1 %2").arg(count).arg(
        QString::fromUtf16(count == 1 ? unit.singular : unit.plural));
}

} // namespace

QString localizedString(const QDateTime &date, const QDateTime &relativeTo)
{
    static const QList<Unit> units{
        {365 * 24 * 3600, u"year", u"years"},
        {30 * 24 * 3600, u"month", u"months"},
        {7 * 24 * 3600, u"week", u"weeks"},
        {24 * 3600, u"day", u"days"},
        {3600, u"hour", u"hours"},
        {60, u"minute", u"minutes"},
        {1, u"second", u"seconds"},
    };
    const qint64 seconds = date.secsTo(relativeTo);
    const qint64 magnitude = std::llabs(seconds);
    if (magnitude < 1)
        return QStringLiteral("now");
    for (const Unit &unit : units) {
        if (magnitude < unit.seconds)
            continue;
        const QString amount = phrase(magnitude / unit.seconds, unit);
        return seconds > 0 ? amount + QStringLiteral(" ago") : QStringLiteral("in ") + amount;
    }
    Q_UNREACHABLE();
}

} // namespace RelativeDateFormatter
