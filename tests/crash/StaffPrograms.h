// Small programs over a staff database, for tests that disturb them.

#pragma once

#include <functional>
#include <ostream>
#include <vector>

#include "tests/support/StaffModel.h"

namespace Kes::testing {

struct StaffProgram {
    /// Called after each commit, undo and redo.
    using Done = std::function<void()>;

    const char* name;
    void (*run)(StaffModel& model, const Done& done);

    /// Comes to its end in spite of one failure.
    bool outlivesOne = false;
};

inline void PrintTo(const StaffProgram& program, std::ostream* stream) {
    *stream << program.name;
}

/// Each works on what fillStaff has made.
std::vector<StaffProgram> staffPrograms();

}  // namespace Kes::testing
