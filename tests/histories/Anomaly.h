// What can go wrong between sessions that work at the same time, and which
// isolation level of which database permits it.

#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

namespace Kes::testing {

enum class Anomaly : std::uint8_t {
    LostCommit,        // acknowledged, and not stored
    StoredRefusal,     // refused, and stored
    DirtyRead,         // of what was never stored
    IntermediateRead,  // of what a transaction wrote over itself
    LostUpdate,        // two transactions built on the same state of one object
    CircularFlow,      // each of some transactions has seen, or overwritten, the other's writes
    TornSelection,     // one selection shows a part of a commit
    StaleRead,         // of a state older than a commit that was acknowledged before
    BrokenLink,        // one-sided, or to an object that is gone
    ReadSkew,          // a transaction sees a part of another one
    WriteSkew          // each of some transactions has not seen what another one wrote
};

const char* nameOf(Anomaly anomaly);

/// An isolation level of a database. The option that asks for it is `option`.
struct Level {
    std::string engine;  // as KES_TEST_DRIVER has it
    std::string option;
    std::vector<Anomaly> permitted;

    bool permits(Anomaly anomaly) const;
};

/// What GoogleTest shows of one.
void PrintTo(const Level& level, std::ostream* stream);

/// The levels of a database, its default first. docs/isolation.md shows them,
/// and a test compares the page with this list.
std::vector<Level> levelsOf(const std::string& engine);

/// What KES_TEST_DRIVER says.
std::string driverUnderTest();

/// The level's name within that of a test.
std::string shownName(const ::testing::TestParamInfo<Level>& info);

}  // namespace Kes::testing
