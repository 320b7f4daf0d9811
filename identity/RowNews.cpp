#include "identity/RowNews.h"

#include <algorithm>

#include <kes/Class.h>
#include <kes/Instance.h>

namespace Kes {

RowNews::Reading RowNews::begin(const Class* cls) {
    std::erase_if(open, [](const Open& each) { return each.alive.expired(); });
    if (open.empty())
        entries.clear();
    Reading reading{std::make_shared<char>(), moment + 1};
    open.push_back({reading.keep, cls, reading.begun});
    ++moment;
    return reading;
}

bool RowNews::isAnyOpen() const {
    return std::any_of(open.begin(), open.end(),
                       [](const Open& each) { return !each.alive.expired(); });
}

// What a selection delivers is no news to itself: it delivers each object once.
bool RowNews::isOpenFor(const Instance* instance) const {
    for (const Open& each : open) {
        if (rowsBegun != Unknown && each.begun >= rowsBegun)
            return false;
        if (!each.alive.expired() && instance->getClass()->isA(each.cls))
            return true;
    }
    return false;
}

// An older row says nothing against what is noted.
void RowNews::note(const Instance* instance) {
    if (!concerns(instance))
        return;
    const Entry fresh{instance->getVersion(), false, moment + 1};
    Entry& entry = entries.try_emplace(instance->getObjectID(), fresh).first->second;
    if (entry.isRemoval || entry.version < fresh.version)
        entry = fresh;
    ++moment;
}

void RowNews::noteRemoval(const Instance* instance, unsigned long version) {
    if (!concerns(instance))
        return;
    entries.insert_or_assign(instance->getObjectID(), Entry{version, true, moment + 1});
    ++moment;
}

void RowNews::makeRoom(const Entries& more) {
    const std::size_t size = entries.size() + more.size();
    if (static_cast<float>(size) >
        static_cast<float>(entries.bucket_count()) * entries.max_load_factor())
        entries.reserve(2 * size);
}

void RowNews::note(Entries& more) noexcept {
    ++moment;
    while (!more.empty()) {
        auto added = entries.insert(more.extract(more.begin()));
        if (!added.inserted)
            added.position->second = added.node.mapped();
        added.position->second.moment = moment;
    }
}

// Where nobody tells whose row it is, the version does.
bool RowNews::findLost(const Instance* instance) const {
    const auto found = entries.find(instance->getObjectID());
    if (found == entries.end() || !found->second.isRemoval)
        return false;
    return rowsBegun != Unknown ? found->second.moment > rowsBegun
                                : instance->getVersion() < found->second.version;
}

bool RowNews::findNewer(const Instance* instance) const {
    const auto found = entries.find(instance->getObjectID());
    return found != entries.end() && !found->second.isRemoval && found->second.moment > rowsBegun &&
           instance->getVersion() < found->second.version;
}

}  // namespace Kes
