// One run of the script in a process of its own, and the judgement on it.

#pragma once

#include <string>
#include <vector>

#include "tools/fault-check/Script.h"

namespace Kes::faulty {

/// What goes wrong in all runs of a series.
struct Series {
    std::string fault = "fail";  // as faulty.fault
    bool goesOn = false;
    bool after = false;
    Script::Handling handling = Script::Throws;

    std::string describe() const;
};

/// What came of a run.
struct Outcome {
    bool reached = false;  // the fault
    std::string where;     // the slot that it fell on first
    std::vector<std::string> problems;
};

/// Starts the script with a fault at the call `at` and judges what it reports,
/// how it ends and what the database holds then. `states` as a run without
/// faults recorded them.
Outcome runWithFault(const Target& target, const Series& series, unsigned long at,
                     std::vector<State>& states);

/// The run without faults, in this process. Fills `states`, and `slots` with
/// the slots that were called.
Outcome runWithoutFault(const Target& target, std::vector<State>& states,
                        std::set<std::string>& slots);

/// Replaces what in a text changes from run to run: `{run}` by the number,
/// `{folder}` by the folder.
std::string replace(const std::string& text, unsigned long run, const std::string& folder);

}  // namespace Kes::faulty
