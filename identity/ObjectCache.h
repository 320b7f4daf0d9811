// Identity map: the objects of a model, each stored object once in memory.
//
// Instances are freed by mark and sweep. The roots are the registered pointers
// and everything that the pending transaction mentions; marks spread through
// references with a stack of their own, so that long chains cost no recursion.

#pragma once

#include <functional>
#include <unordered_set>
#include <vector>

#include <kes/Forward.h>
#include <kes/Pointer.h>

#include "identity/ObjectTable.h"
#include "identity/PointerRegistry.h"
#include "identity/RowNews.h"

namespace Kes {

class Marker;

class ObjectCache {
public:
    explicit ObjectCache(int cacheCapacity);
    ObjectCache(const ObjectCache&) = delete;
    ObjectCache& operator=(const ObjectCache&) = delete;
    ~ObjectCache();

    Instance* get(unsigned long id) const { return instances.find(id); }
    std::size_t size() const { return instances.size(); }

    /// Every filed instance, in no order.
    template <class Visit>
    void forEach(Visit visit) const {
        for (const ObjectTable::Entry& entry : instances.entries())
            if (entry.instance != nullptr)
                visit(entry.instance);
    }
    int capacity() const { return threshold; }

    /// Files the instance, which the cache owns from now on.
    void file(Instance* instance);

    /// Counts an insertion; true when a collection is due: on the 27th above
    /// the threshold, and then 27 later, or later still where a collection of
    /// many instances frees few.
    bool isCollectionDue();

    /// So many instances are no longer held by a transaction. When they are
    /// most of all, the next collection waits no longer than usual.
    void release(std::size_t count) noexcept;

    /// Forgets the id of an instance that was never stored. The cache goes on
    /// to own it, until a collection finds that nothing reaches it.
    void orphan(Instance* instance) noexcept;

    /// Frees what neither a pointer nor the transaction reaches.
    /// `markMore` marks what else is in use.
    void collect(const std::function<void(Marker&)>& markMore);

    /// Empties all pointers and frees all instances.
    void empty();

    PointerRegistry pointers;
    RowNews news;

private:
    /// The number of instances that it freed.
    std::size_t sweep();
    void displace(unsigned long id, Instance* before);
    void orphanStrays();
    void unmark();
    void destroy(const std::vector<Instance*>& dead);

    ObjectTable instances;
    std::unordered_set<Instance*> orphans;
    std::size_t strays = 0;  // orphans that stayed filed under the ids that they had
    int threshold;
    std::size_t pressure = 0;
    std::size_t patience;
};

/// Marks an instance and whatever its references reach.
class Marker {
public:
    void mark(Instance* instance);

private:
    class ReferenceMarker;

    void push(Instance* instance);

    std::vector<Instance*> reached;
};

}  // namespace Kes
