// The partners that references give up while a driver fills objects.
//
// A driver that brings an object up to date sets its references to unfetched and
// gives them new ids. Whoever was the partner before may be in memory, with a
// collection that the object has left.

#pragma once

#include <utility>
#include <vector>

#include <kes/Forward.h>

namespace Kes {

class DroppedPartners {
public:
    struct Entry {
        const OneAssociatedInstance* ref;
        unsigned long partner;  // object id
    };

    static void note(const OneAssociatedInstance* ref, unsigned long partner) {
        if (myCurrent != nullptr)
            myCurrent->entries.push_back({ref, partner});
    }

    /// Notes in this list, on the calling thread, or in none; returns the list
    /// that was noted in before.
    static DroppedPartners* noteIn(DroppedPartners* list) { return std::exchange(myCurrent, list); }

    std::vector<Entry> entries;

private:
    static inline constinit thread_local DroppedPartners* myCurrent = nullptr;
};

}  // namespace Kes
