#include "identity/ObjectCache.h"

#include <kes/Handler.h>

#include "object/ReferenceState.h"

namespace Kes {

namespace {

// Insertions above the threshold that no collection answers.
constexpr std::size_t Patience = 25;

// From so many survivors on the collections keep a distance.
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
    if (!orphans.empty())
        orphans.erase(instance);
    Instance* before = instances.file(instance->getObjectID(), instance);

    // Somebody may still refer to an instance that lost its place.
    if (before != nullptr && before != instance)
        orphans.insert(before);
}

bool ObjectCache::isCollectionDue() {
    return instances.size() > static_cast<std::size_t>(threshold) && pressure++ > patience;
}

void ObjectCache::release(std::size_t count) noexcept {
    if (count >= instances.size() / 2)
        patience = Patience;
}

void ObjectCache::orphan(Instance* instance) {
    if (instances.find(instance->getObjectID()) == instance)
        instances.remove(instance->getObjectID());
    instance->setObjectID(0);
    orphans.insert(instance);
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
    for (const ObjectTable::Entry& entry : instances.entries())
        if (entry.instance != nullptr)
            entry.instance->setVisited(false);
    for (Instance* orphan : orphans)
        orphan->setVisited(false);
    throw;
}

std::size_t ObjectCache::sweep() {
    std::vector<Instance*> dead;
    std::vector<unsigned long> ids;
    for (const ObjectTable::Entry& entry : instances.entries()) {
        if (entry.instance == nullptr)
            continue;
        if (entry.instance->isVisited()) {
            entry.instance->setVisited(false);
        } else {
            ids.push_back(entry.id);
            dead.push_back(entry.instance);
        }
    }
    for (const unsigned long id : ids)
        instances.remove(id);
    for (auto it = orphans.begin(); it != orphans.end();) {
        if ((*it)->isVisited()) {
            (*it)->setVisited(false);
            ++it;
        } else {
            dead.push_back(*it);
            it = orphans.erase(it);
        }
    }
    destroy(dead);
    return dead.size();
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
    std::vector<Instance*> dead(orphans.begin(), orphans.end());
    for (const ObjectTable::Entry& entry : instances.entries())
        if (entry.instance != nullptr)
            dead.push_back(entry.instance);
    instances.clear();
    orphans.clear();
    news.clear();
    pressure = 0;
    patience = Patience;
    destroy(dead);
}

}  // namespace Kes
