// Prefetched collections: those that were loaded together with a sibling's, until
// they are asked for.
//
// They are forgotten as soon as the application talks to the database in any
// other way, and not used any more when they no longer stand for what would be
// read now; see fetch/Freshness.h. A program that does so for every object
// would have nearly all of what is loaded for siblings thrown away: it is noticed,
// and loading together pauses, the longer the more often.

#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include <kes/Forward.h>
#include <kes/String.h>

#include "fetch/Backoff.h"
#include "fetch/Freshness.h"

namespace Kes {

/// A member as it was when the collection was read.
struct PrefetchedMember {
    unsigned long id;
    unsigned long version;
};

class PrefetchedCollections {
public:
    /// By the ids of their owners.
    using Collections = std::unordered_map<unsigned long, std::vector<PrefetchedMember>>;

    /// `freshness` is borrowed for life.
    explicit PrefetchedCollections(const Freshness& itsFreshness) : freshness(itsFreshness) {}

    void store(const Association* association, const String& role, const ReadMoment& when,
               Collections&& collections);

    /// False when the owner's collection was not prefetched, or not fresh any more.
    bool consume(const Association* association, const String& role, unsigned long owner,
                 std::vector<PrefetchedMember>& members);
    void forget();

    /// What was loaded for siblings is of no use.
    void discard();

    /// Asked before each loading: whether it may load for siblings too.
    bool mayLoadTogether() { return backoff.isOver(); }

private:
    struct Entry {
        const Association* association;
        String role;
        Collections collections;
        std::size_t loaded;
        ReadMoment when;
    };

    Entry* find(const Association* association, const String& role);
    void judge(const Entry& entry);

    const Freshness& freshness;
    std::vector<Entry> entries;
    Backoff backoff;
};

}  // namespace Kes
