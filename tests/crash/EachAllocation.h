// Letting every allocation of a piece of work fail, one after another.

#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>

#include <kes/Exception.h>

#include "tests/crash/FaultyMemory.h"

namespace Kes::testing {

/// One round, in which the allocation `at` fails, or that and all behind it.
class FailingRound {
public:
    FailingRound(unsigned long failingAt, bool isForGood) : at(failingAt), goesOn(isForGood) {}

    /// What the test itself keeps beyond the round, in pieces of memory.
    long kept = 0;

    /// Runs what shall bear it. True when it came to its end; what it throws for
    /// the failing allocation ends here, and nothing else does.
    template <class Work>
    bool bears(Work work) {
        try {
            FaultyMemory::set(at, goesOn);
            work();
            FaultyMemory::clear();
            return true;
        } catch (const Exception&) {
            FaultyMemory::clear();
            if (!FaultyMemory::hasStruck())
                throw;
        } catch (const std::bad_alloc&) {
            FaultyMemory::clear();
        } catch (...) {
            FaultyMemory::clear();
            throw;
        }
        return false;
    }

private:
    unsigned long at;
    bool goesOn;
};

/// Calls `round` with a FailingRound for the first allocation, for the second and
/// so on, until one bears its work without meeting a failure, or the test has
/// failed. Each round gives back what it has taken. Returns how many allocations
/// the work makes.
///
/// Rounds that cost more than the work itself pass over some of the later ones,
/// with steps that grow: each `thinning` allocations by one. KES_EACH_ALLOCATION=1
/// in the environment takes every one.
template <class Round>
unsigned long failEachAllocation(bool goesOn, Round round, unsigned long thinning = 0) {
    constexpr unsigned long Most = 100000;
    if (std::getenv("KES_EACH_ALLOCATION") != nullptr)
        thinning = 0;
    for (unsigned long at = 1; at < Most; at += 1 + (thinning != 0 ? at / thinning : 0)) {
        const ::testing::ScopedTrace trace(__FILE__, __LINE__, "allocation " + std::to_string(at));
        const long before = FaultyMemory::live();
        FailingRound failing(at, goesOn);
        round(failing);
        EXPECT_EQ(before + failing.kept, FaultyMemory::live());
        if (!FaultyMemory::hasStruck() || ::testing::Test::HasFailure())
            return at - 1;
    }
    ADD_FAILURE() << "there is no end to the allocations";
    return Most;
}

}  // namespace Kes::testing
