#pragma once

#include <QList>
#include <QString>

#include <algorithm>
#include <cstdio>

// Median, minimum and maximum of a series of measurements, printed on one line.
struct BenchStatistics {
    double median = 0;
    double minimum = 0;
    double maximum = 0;
    qsizetype count = 0;

    static BenchStatistics of(QList<double> values)
    {
        BenchStatistics result;
        if (values.isEmpty())
            return result;
        std::sort(values.begin(), values.end());
        const qsizetype middle = values.size() / 2;
        result.median = values.size() % 2 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
        result.minimum = values.first();
        result.maximum = values.last();
        result.count = values.size();
        return result;
    }

    void print(const char *label, const char *unit = "ms") const
    {
        std::printf("%-44s median %8.2f %s   min %8.2f   max %8.2f   (%lld runs)\n", label, median, unit,
                    minimum, maximum, static_cast<long long>(count));
    }
};
