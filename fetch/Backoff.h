// Exponential back-off for an optimisation that keeps failing.

#pragma once

#include <algorithm>
#include <cstddef>

namespace Kes {

/// Each failure in a row doubles the number of attempts that are left out.
class Backoff {
public:
    /// Asked before each attempt.
    bool isOver() {
        if (left == 0)
            return true;
        --left;
        return false;
    }
    void noteSuccess() { failures = 0; }

    /// Of so many that were read so many were of use. A row that is read in vain
    /// costs a fraction of the statement that one of use has saved.
    void judge(std::size_t loaded, std::size_t used) {
        if (used * RowsPerStatement < loaded)
            noteFailure();
        else
            noteSuccess();
    }
    void noteFailure() {
        failures = std::min(failures + 1, MostFailures);
        left = std::size_t{1} << failures;
    }

private:
    // 1,024 attempts are left out at most: what has been in vain for long costs one
    // in a thousand still, and what changes its ways is noticed.
    static constexpr unsigned MostFailures = 10;

    // How many rows cost as much as a statement. A guess for a database on the same
    // machine; over a network it is more, and reading ahead pays sooner.
    static constexpr std::size_t RowsPerStatement = 8;

    unsigned failures = 0;  // in a row
    std::size_t left = 0;
};

}  // namespace Kes
