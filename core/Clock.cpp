#include "core/Clock.h"

namespace {
class SystemClock final : public Clock {
public:
    QDateTime now() const override { return QDateTime::currentDateTimeUtc(); }
};
} // namespace

const Clock &Clock::system()
{
    static const SystemClock clock;
    return clock;
}
