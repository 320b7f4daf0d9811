// The two programs of the staff circuit.

#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "bench/staff/StaffData.h"

namespace bench {

/// What a step counted; equal for both programs.
struct Result {
    std::uint64_t count = 0;
    std::uint64_t sum = 0;
};

/// Runs one step on the file. Whatever the step does before it calls `start`
/// is not measured, nor what it does after `stop`.
struct Clock {
    std::function<void()> start;
    std::function<void()> stop;
};

Result runKes(const std::string& step, const std::string& file, const StaffData& data,
              const Clock& clock);
Result runPlain(const std::string& step, const std::string& file, const StaffData& data,
                const Clock& clock);

}  // namespace bench
