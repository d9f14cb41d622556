#pragma once

#include <QDateTime>

// Where "now" comes from, so that tests can move time by hand.
class Clock {
public:
    virtual ~Clock() = default;
    virtual QDateTime now() const = 0;

    // The wall clock, in UTC.
    static const Clock &system();
};
