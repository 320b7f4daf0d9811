// The ways in which a database file is written.

#pragma once

#include <ostream>
#include <string>

#include <gtest/gtest.h>

namespace Kes::testing {

struct Journal {
    const char* name;
    const char* options;
};

inline void PrintTo(const Journal& journal, std::ostream* stream) {
    *stream << journal.options;
}

inline std::string nameOfJournal(const ::testing::TestParamInfo<Journal>& info) {
    return info.param.name;
}

/// The first two as users have them. With little cache the pages of a
/// transaction are written while it is still under way, and without waiting for
/// the disk a kill falls on the writing and not on the waiting.
inline auto allJournals() {
    return ::testing::Values(
        Journal{"Log", "journal_mode=wal"}, Journal{"Rollback", "journal_mode=delete"},
        Journal{"LogBusy", "journal_mode=wal;synchronous=off;cache_size=16"},
        Journal{"RollbackBusy", "journal_mode=delete;synchronous=off;cache_size=16"});
}

/// Everything is written, and waited for.
inline auto slowJournals() {
    return ::testing::Values(Journal{"Log", "journal_mode=wal;cache_size=16"},
                             Journal{"Rollback", "journal_mode=delete;cache_size=16"});
}

inline auto defaultJournals() {
    return ::testing::Values(Journal{"Log", "journal_mode=wal"},
                             Journal{"Rollback", "journal_mode=delete"});
}

}  // namespace Kes::testing
