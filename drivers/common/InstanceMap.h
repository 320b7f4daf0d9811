// Where the operations of instances stand in a queue.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <kes/Forward.h>

namespace Kes::sql {

/// A table of positions by instance that allocates nothing once it has grown,
/// and is cleared in no time. The instances are borrowed.
class InstanceMap {
public:
    static constexpr std::uint32_t None = UINT32_MAX;

    void set(const Instance* instance, std::size_t position) {
        if (entries.size() < 2 * (used + 1))
            grow();
        Entry& entry = entries[placeOf(instance)];
        if (entry.generation != generation)
            ++used;
        entry = {instance, static_cast<std::uint32_t>(position), generation};
    }

    /// None when it is not there.
    std::uint32_t find(const Instance* instance) const {
        if (used == 0)
            return None;
        const Entry& entry = entries[placeOf(instance)];
        return entry.generation == generation ? entry.position : None;
    }

    /// Its place stays taken, so that others are still found behind it.
    void erase(const Instance* instance) {
        if (find(instance) != None)
            entries[placeOf(instance)].position = None;
    }

    void clear() {
        used = 0;
        if (++generation == 0) {
            entries.clear();
            generation = 1;
        }
    }

private:
    struct Entry {
        const Instance* instance = nullptr;
        std::uint32_t position = None;
        std::uint32_t generation = 0;  // it is free when this is not the map's
    };

    // Of the instance, or the free one where it belongs.
    std::size_t placeOf(const Instance* instance) const {
        const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(instance));
        std::size_t place = (bits >> 4) * 0x9E3779B97F4A7C15U >> 32;
        for (;; ++place) {
            place &= entries.size() - 1;
            if (entries[place].generation != generation || entries[place].instance == instance)
                return place;
        }
    }

    void grow() {
        std::vector<Entry> old(entries.empty() ? 64 : 2 * entries.size());
        old.swap(entries);
        for (const Entry& entry : old)
            if (entry.generation == generation)
                entries[placeOf(entry.instance)] = entry;
    }

    std::vector<Entry> entries;  // a power of two
    std::size_t used = 0;
    std::uint32_t generation = 1;
};

}  // namespace Kes::sql
