#include "identity/ObjectCache.h"

#include <new>

#include <kes/Handler.h>

#include "object/ReferenceState.h"

namespace Kes {

namespace {

// Insertions above the threshold that no collection answers. The header promises
// applications one on every 27th.
constexpr std::size_t Patience = 25;

// From so many survivors on the collections keep a distance. To visit fewer on every
// 27th insertion costs an insertion no more than 38 visits.
constexpr std::size_t ManySurvivors = 1024;

// The insertions before the next collection. One that found nearly everything
// in use, as in the middle of a large transaction, would find the same 27
// insertions later: the next waits for half as many insertions as there were
// survivors, so that an insertion costs a constant number of visits.
std::size_t patienceAfter(std::size_t freed, std::size_t survivors) {
    if (survivors < ManySurvivors || freed >= survivors / 2)
        return Patience;
    return survivors / 2;
}

}  // namespace

class Marker::ReferenceMarker final : public EmptyHandler {
public:
    explicit ReferenceMarker(Marker& itsMarker) : marker(itsMarker) {}

    void handleOneAssociated(const String&, const String&, OneAssociatedInstance* ref,
                             Association::ConsistencyRule) override {
        marker.push(ref->getInstance());
    }

    void handleManyAssociated(const String&, const String&, ManyAssociatedInstances* ref) override {
        if (const auto* known = dynamic_cast<const ManyReference*>(ref)) {
            for (Instance* member : ReferenceState::members(*known))
                marker.push(member);
            return;
        }
        for (ref->reset(); ref->next();)
            marker.push(ref->value());
    }

private:
    Marker& marker;
};

void Marker::mark(Instance* instance) {
    push(instance);
    ReferenceMarker references(*this);
    while (!reached.empty()) {
        Instance* next = reached.back();
        reached.pop_back();
        next->handle(&references);
    }
}

void Marker::push(Instance* instance) {
    if (instance == nullptr || instance->isVisited())
        return;
    instance->setVisited(true);
    reached.push_back(instance);
}

ObjectCache::ObjectCache(int cacheCapacity)
    : instances(static_cast<std::size_t>(std::max(cacheCapacity, 0))),
      threshold(std::max(cacheCapacity, 0)),
      patience(Patience) {}

ObjectCache::~ObjectCache() {
    empty();
}

void ObjectCache::file(Instance* instance) {
    if (strays > 0)
        orphanStrays();
    const unsigned long id = instance->getObjectID();
    Instance* before = instances.file(id, instance);
    if (before != nullptr && before != instance)
        displace(id, before);
    if (!orphans.empty())
        orphans.erase(instance);
}

// Somebody may still refer to an instance that loses its place.
void ObjectCache::displace(unsigned long id, Instance* before) try {
    orphans.insert(before);
} catch (...) {
    instances.file(id, before);
    throw;
}

// There is memory again: they take their places among the orphans.
void ObjectCache::orphanStrays() {
    std::vector<ObjectTable::Entry> found;
    for (const ObjectTable::Entry& entry : instances.entries())
        if (entry.instance != nullptr && entry.instance->getObjectID() != entry.id)
            found.push_back(entry);
    for (const ObjectTable::Entry& entry : found) {
        orphans.insert(entry.instance);
        instances.remove(entry.id);
    }
    strays = 0;
}

bool ObjectCache::isCollectionDue() {
    return instances.size() > static_cast<std::size_t>(threshold) && pressure++ > patience;
}

void ObjectCache::release(std::size_t count) noexcept {
    if (count >= instances.size() / 2)
        patience = Patience;
}

// A rollback orphans what it takes back, and must not fail. Ids are never given
// twice, so without memory the instance may as well stay where it is.
void ObjectCache::orphan(Instance* instance) noexcept {
    const unsigned long id = instance->getObjectID();
    const bool isFiled = instances.find(id) == instance;
    instance->setObjectID(0);
    try {
        orphans.insert(instance);
    } catch (const std::bad_alloc&) {
        strays += isFiled ? 1 : 0;
        return;
    }
    if (isFiled)
        instances.remove(id);
}

// Marks that stayed behind would keep the next collection from what they hide.
void ObjectCache::collect(const std::function<void(Marker&)>& markMore) try {
    Marker marker;
    for (PointerBase* p = pointers.first(); p != nullptr; p = pointers.after(p))
        marker.mark(p->getInstance());
    markMore(marker);
    const std::size_t freed = sweep();
    pressure = 0;
    patience = patienceAfter(freed, instances.size() + orphans.size());
} catch (...) {
    unmark();
    throw;
}

std::size_t ObjectCache::sweep() {
    std::vector<Instance*> dead;
    std::vector<unsigned long> ids;
    for (const ObjectTable::Entry& entry : instances.entries())
        if (entry.instance != nullptr && !entry.instance->isVisited()) {
            ids.push_back(entry.id);
            dead.push_back(entry.instance);
        }
    for (Instance* orphan : orphans)
        if (!orphan->isVisited())
            dead.push_back(orphan);

    // Nothing fails from here on.
    for (const unsigned long id : ids)
        strays -= instances.remove(id)->getObjectID() != id ? 1 : 0;
    std::erase_if(orphans, [](const Instance* orphan) { return !orphan->isVisited(); });
    unmark();
    destroy(dead);
    return dead.size();
}

void ObjectCache::unmark() {
    for (const ObjectTable::Entry& entry : instances.entries())
        if (entry.instance != nullptr)
            entry.instance->setVisited(false);
    for (Instance* orphan : orphans)
        orphan->setVisited(false);
}

void ObjectCache::destroy(const std::vector<Instance*>& dead) {
    for (Instance* instance : dead)
        delete instance;
}

void ObjectCache::empty() {
    while (PointerBase* pointer = pointers.first()) {
        pointer->makeNull();
        pointers.remove(pointer);
    }
    news.clear();
    pressure = 0;
    patience = Patience;
    strays = 0;
    while (!orphans.empty())
        delete orphans.extract(orphans.begin()).value();
    instances.drain([](Instance* instance) { delete instance; });
}

}  // namespace Kes
