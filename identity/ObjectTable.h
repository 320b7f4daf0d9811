// Hash table of the identity map: instances by object id.
//
// Open addressing with linear probing, at most half full; a removal moves the
// entries behind it up, so there are no marks to clean.

#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

#include <kes/Forward.h>

namespace Kes {

class ObjectTable {
public:
    struct Entry {
        unsigned long id = 0;
        Instance* instance = nullptr;  // null marks a free slot
    };

    /// `capacity` entries find place without growing.
    explicit ObjectTable(std::size_t capacity) {
        // A large capacity is a promise about memory, not a wish to use it now.
        grow(std::bit_ceil(2 * std::min<std::size_t>(capacity, 1024) + 16));
    }

    std::size_t size() const { return used; }

    Instance* find(unsigned long id) const { return slots[slotOf(id)].instance; }

    /// Returns the instance that was filed under the id before, or null. Leaves
    /// the table as it was when memory runs out.
    Instance* file(unsigned long id, Instance* instance) {
        Entry* entry = &slots[slotOf(id)];
        Instance* before = entry->instance;
        if (before == nullptr) {
            if ((used + 1) * 2 > slots.size()) {
                grow(slots.size() * 2);
                entry = &slots[slotOf(id)];
            }
            ++used;
        }
        *entry = {id, instance};
        return before;
    }

    Instance* remove(unsigned long id) {
        std::size_t hole = slotOf(id);
        Instance* removed = slots[hole].instance;
        if (removed == nullptr)
            return nullptr;
        --used;
        for (std::size_t at = next(hole); slots[at].instance != nullptr; at = next(at)) {
            const std::size_t home = homeOf(slots[at].id);
            if (((at - home) & mask()) < ((at - hole) & mask()))
                continue;
            slots[hole] = slots[at];
            hole = at;
        }
        slots[hole] = Entry();
        return removed;
    }

    /// Every slot, the free ones included.
    const std::vector<Entry>& entries() const { return slots; }

    /// Empties the table and passes each instance on. Needs no memory.
    template <class Take>
    void drain(Take take) {
        for (std::size_t i = 0; used > 0 && i < slots.size(); ++i)
            if (Instance* instance = std::exchange(slots[i], Entry()).instance) {
                --used;
                take(instance);
            }
    }

private:
    std::size_t mask() const { return slots.size() - 1; }
    std::size_t next(std::size_t slot) const { return (slot + 1) & mask(); }

    // Ids come in sequence: four neighbours share a cache line, and the fours
    // are scattered, because a removal walks to the end of an unbroken run.
    std::size_t homeOf(unsigned long id) const {
        const std::uint64_t scattered = (id >> 2) * 0x9E3779B97F4A7C15U >> 32;
        return (scattered << 2 | (id & 3)) & mask();
    }

    std::size_t slotOf(unsigned long id) const {
        std::size_t slot = homeOf(id);
        while (slots[slot].instance != nullptr && slots[slot].id != id)
            slot = next(slot);
        return slot;
    }

    void grow(std::size_t size) {
        std::vector<Entry> old(size);
        old.swap(slots);
        for (const Entry& entry : old)
            if (entry.instance != nullptr)
                slots[slotOf(entry.id)] = entry;
    }

    std::vector<Entry> slots;
    std::size_t used = 0;
};

}  // namespace Kes
