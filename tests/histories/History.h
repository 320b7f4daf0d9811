// What processes did to some lists, and what they were told.
//
// Each value is appended once, to one list. So the stored list tells the order of
// the transactions that wrote it, and what a transaction has read tells its place
// among them.

#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "tests/histories/Anomaly.h"

namespace Kes::testing {

using Values = std::vector<long>;

struct ListRead {
    long list;
    Values seen;  // in the list's order
};

struct Append {
    long list;
    long value;
};

struct Transaction {
    enum Outcome : std::uint8_t { Done, Refused, Unknown };

    int process = 0;
    Outcome outcome = Done;
    bool isSelection = false;  // all its reads come from one selection
    long begun = 0;            // nanoseconds of a clock that the processes share
    long ended = 0;
    std::vector<ListRead> reads;  // none of what the transaction itself has appended
    std::vector<Append> appends;  // in their order

    /// One line, which parse understands.
    std::string text() const;
    static Transaction parse(const std::string& line);
};

using Lists = std::map<long, Values>;

struct Finding {
    Anomaly anomaly;
    std::string text;
};

/// Everything that the transactions, and the lists that are stored in the end,
/// show of the anomalies. Read skews and write skews are looked for only where
/// they are not permitted, since that takes longest.
std::vector<Finding> findAnomalies(const std::vector<Transaction>& history, const Lists& stored,
                                   const Level& level);

}  // namespace Kes::testing
