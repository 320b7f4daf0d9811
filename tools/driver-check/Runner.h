// Runs checks and reports on them.

#pragma once

#include <string>
#include <vector>

#include "Check.h"

namespace Kes::check {

struct Result {
    std::string name;
    std::vector<std::string> failures;
    bool wasRefused = false;
    double milliseconds = 0;
};

class Runner {
public:
    /// A check that takes longer than `limit` seconds ends the run.
    Runner(const Settings& given, Refusals& known, int limit)
        : settings(given),
          refusals(known),
          secondsLimit(limit) {}

    /// Runs the check and prints its line.
    void run(const Suite::Entry& entry);

    int passed() const { return static_cast<int>(results.size()) - failed(); }
    int failed() const;

    /// The counts, and what was seen as refused.
    void printSummary() const;

    /// False when the file cannot be written.
    bool writeJson(const std::string& file) const;

private:
    void runInTime(const Suite::Entry& entry, Check& check);

    const Settings& settings;
    Refusals& refusals;
    int secondsLimit;
    std::vector<Result> results;
};

/// Whether the name matches: a part of it, or all of it when the pattern has a
/// `*`, which stands for any characters.
bool isSelected(const std::string& name, const std::string& pattern);

}  // namespace Kes::check
