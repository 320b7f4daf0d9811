// Measuring a step in a process of its own.

#pragma once

#include <string>
#include <vector>

#include "bench/staff/StaffPrograms.h"

namespace bench {

struct Measurement {
    double milliseconds = 0;
    double userSeconds = 0;
    double systemSeconds = 0;
    long peakKiB = 0;
    Result result;
};

/// Runs the step of a program in a forked process. Throws std::runtime_error
/// with the step named when it fails or takes more than ten minutes.
Measurement measure(const std::string& program, const std::string& step, const std::string& file,
                    const StaffData& data);

struct Spread {
    double median;
    double least;
    double most;
    double lowerQuartile;
    double upperQuartile;

    bool isNoisy() const { return upperQuartile - lowerQuartile > 0.1 * median; }
};

Spread spreadOf(std::vector<double> values);

}  // namespace bench
