// Runs checks and reports on them.

#pragma once

#include <string>
#include <vector>

#include "Check.h"

namespace Kes::check {

struct Result {
    std::string name;
    std::vector<std::string> failures;
    std::string notes;
    bool wasRefused = false;
    double milliseconds = 0;
};

/// Reports on what has run in any case: also when a check does not come to an
/// end, ends the process or crashes, or when somebody interrupts the run.
class Runner {
public:
    /// A check that takes longer than `limit` seconds ends the run. The report
    /// is written to the file `jsonFile`, unless that is "".
    Runner(const Settings& given, Refusals& known, int limit, std::string jsonFile)
        : settings(given),
          refusals(known),
          secondsLimit(limit),
          json(std::move(jsonFile)) {}

    /// Runs the checks, prints a line for each and the counts in the end.
    /// Returns the status to end with.
    int run(const std::vector<Suite::Entry>& entries);

    /// For a run that ends in the check under way: `how` completes its line.
    void reportEnd(const std::string& how);

private:
    void runOne(const Suite::Entry& entry);
    void runInTime(const Suite::Entry& entry, Check& check);
    int failed() const;
    void printSummary() const;
    bool writeJson() const;

    const Settings& settings;
    Refusals& refusals;
    int secondsLimit;
    std::string json;
    std::size_t wanted = 0;
    std::vector<Result> results;
};

/// Whether the name matches: a part of it, or all of it when the pattern has a
/// `*`, which stands for any characters.
bool isSelected(const std::string& name, const std::string& pattern);

}  // namespace Kes::check
