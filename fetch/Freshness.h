// Validity of what was prefetched: how long it stands for what would be read now.
//
// What was read ahead is indistinguishable from what is read on demand.
// It must not be older than anything that the application may know of. So it
// ends with every other statement for the application and at each border of a
// transaction, with the end of any commit in this process, and when a read that
// a reference asked for shows a newer state. Of the commits of other processes
// nothing is heard here: a program that learns of one over another channel may
// be handed a state that is as old as Lifetime.

#pragma once

#include <chrono>
#include <cstdint>

#include "fetch/CommitCount.h"
#include "query/DeliveryObserver.h"

namespace Kes {

class Freshness {
public:
    // Long enough for the objects of a group to be worked on, and less than people and
    // messages between programs mostly take to tell of a commit. A shorter time is safer
    // and reads more often.
    static constexpr std::chrono::milliseconds Lifetime{100};

    ReadMoment now() const { return {era, CommitCount::finished(), Clock::now()}; }

    bool holds(const ReadMoment& moment) const {
        return moment.era == era && moment.commits == CommitCount::finished() &&
               Clock::now() - moment.when <= Lifetime;
    }

    /// Whether nothing has ended since.
    bool isOfNow(const ReadMoment& moment) const { return moment.era == era; }

    /// Nothing that was read until now holds any more.
    void end() { ++era; }

private:
    using Clock = std::chrono::steady_clock;

    std::uint64_t era = 1;
};

}  // namespace Kes
