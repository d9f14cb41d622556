#pragma once

#include "core/Clock.h"

#include <utility>

// A clock that stands still until the test moves it.
class ManualClock final : public Clock {
public:
    explicit ManualClock(QDateTime now)
        : m_now(std::move(now))
    {
    }
    QDateTime now() const override { return m_now; }
    void advance(int seconds) { m_now = m_now.addSecs(seconds); }
    void set(const QDateTime &now) { m_now = now; }

private:
    QDateTime m_now;
};
