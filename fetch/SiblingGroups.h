// Batch fetching: who is worked on together.
//
// Instances that one selection delivers form groups. A read of a reference of one
// member is a fault of its group, and the more faults it has had, the more of the
// members the next read loads for: one, then a few, then all. A program that reads
// one reference of one object should not pay for its siblings.

#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include <kes/Instance.h>

#include "fetch/Freshness.h"
#include "object/InstanceState.h"
#include "query/DeliveryObserver.h"

namespace Kes {

struct SiblingGroup {
    std::uint32_t id = 0;
    std::size_t faults = 0;
    std::size_t inherited = 0;  // of these, taken over from the group before
    std::size_t answered = 0;   // of these, followed by reading ahead
    std::uint64_t loading = 0;  // that it was made in; 0 by the application's selection
    ReadMoment when;            // its members were read
    std::vector<unsigned long> members;
};

class SiblingGroups {
public:
    // A guess: large enough that a statement for all costs little for each of them,
    // small enough that what nobody will read is bounded. It is a quarter of the
    // ids that one list of a statement takes.
    static constexpr std::size_t MostMembers = 256;

    /// Null for an instance that is in none, or whose group has given its slot
    /// away.
    SiblingGroup* of(const Instance* instance) {
        const std::uint32_t id = InstanceState::group(instance);
        SiblingGroup& group = groups[id % groups.size()];
        return id != 0 && group.id == id ? &group : nullptr;
    }

    /// The instance joins the group that the delivery has come to, or a new one.
    void enter(Delivery& delivery, Instance* instance, std::uint64_t loading);

    /// What that loading has read is of then.
    void renew(std::uint64_t loading, const ReadMoment& when);

    /// How many more members the next read of a reference would load for, that
    /// were not read yet; `room` at most.
    std::size_t wantedAhead(const Delivery& delivery, std::size_t room);

    /// A reference of a member is read: for how many to load, `room` at most.
    static std::size_t nextBatch(SiblingGroup& group, std::size_t room);

private:
    SiblingGroup& slotOf(std::uint64_t id) { return groups[id % groups.size()]; }

    std::array<SiblingGroup, 64> groups;  // the latest; a group's slot is its id modulo the size
    std::uint32_t lastGroup = 0;
};

}  // namespace Kes
