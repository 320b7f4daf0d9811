// The partners that references give up while a driver fills objects.
//
// A driver that brings an object up to date sets its references to unfetched and
// gives them new ids. Whoever was the partner before may be in memory, with a
// collection that the object has left. Likewise the members of its collections.

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

    /// Whether a driver is at work on the calling thread.
    static bool isNoting() { return myCurrent != nullptr; }

    /// Notes in this list, on the calling thread, or in none; returns the list
    /// that was noted in before.
    static DroppedPartners* recordIn(DroppedPartners* list) {
        return std::exchange(myCurrent, list);
    }

    /// The same for the members of a collection.
    struct Members {
        const ManyAssociatedInstances* ref;
        std::vector<unsigned long> ids;
    };
    static void noteMembers(ManyAssociatedInstances* ref) {
        if (myCurrent != nullptr)
            myCurrent->collections.push_back({ref, idsOf(*ref)});
    }
    static std::vector<unsigned long> idsOf(ManyAssociatedInstances& ref);

    void clear() {
        entries.clear();
        collections.clear();
    }

    /// Nothing is noted on the calling thread while it lives.
    class Pause {
    public:
        Pause() = default;
        Pause(const Pause&) = delete;
        Pause& operator=(const Pause&) = delete;
        ~Pause() { recordIn(outer); }

    private:
        DroppedPartners* outer = recordIn(nullptr);
    };

    std::vector<Entry> entries;
    std::vector<Members> collections;

private:
    static inline constinit thread_local DroppedPartners* myCurrent = nullptr;
};

}  // namespace Kes
