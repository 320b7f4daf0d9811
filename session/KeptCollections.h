// Collections that were loaded together with a sibling's, until they are asked
// for.
//
// They are forgotten as soon as the application talks to the database in any
// other way. A program that does so for every object would have most of what is
// loaded for siblings thrown away: it is noticed, and loading together pauses,
// the longer the more often.

#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

class KeptCollections {
public:
    /// The ids of the members by the id of their owner.
    using Collections = std::unordered_map<unsigned long, std::vector<unsigned long>>;

    void keep(const Association* association, const String& role, Collections&& collections);

    /// False when the owner's collection is not kept.
    bool take(const Association* association, const String& role, unsigned long owner,
              std::vector<unsigned long>& members);
    void forget();

    /// A member was freed before its collection was asked for.
    void noteFreed();

    /// Asked before each loading: whether it may load for siblings too.
    bool mayLoadTogether();

private:
    struct Entry {
        const Association* association;
        String role;
        Collections collections;
        std::size_t loaded;
    };

    Entry* find(const Association* association, const String& role);
    void judge(const Entry& entry);
    void noteWaste();

    std::vector<Entry> entries;
    unsigned wastes = 0;    // in a row
    std::size_t pause = 0;  // loadings that are for one owner only
};

}  // namespace Kes
