#include "fetch/PrefetchedCollections.h"

#include <utility>

namespace Kes {

PrefetchedCollections::Entry* PrefetchedCollections::find(const Association* association,
                                                          const String& role) {
    for (Entry& entry : entries)
        if (entry.association == association && entry.role == role)
            return &entry;
    return nullptr;
}

void PrefetchedCollections::store(const Association* association, const String& role,
                                  const ReadMoment& when, Collections&& collections) {
    const std::size_t loaded = collections.size();
    if (Entry* entry = find(association, role)) {
        judge(*entry);
        entry->collections = std::move(collections);
        entry->loaded = loaded;
        entry->when = when;
        return;
    }
    entries.push_back({association, role.unshared(), std::move(collections), loaded, when});
}

bool PrefetchedCollections::consume(const Association* association, const String& role,
                                    unsigned long owner, std::vector<PrefetchedMember>& members) {
    Entry* entry = find(association, role);
    if (entry == nullptr || !freshness.holds(entry->when))
        return false;
    const auto found = entry->collections.find(owner);
    if (found == entry->collections.end())
        return false;
    members = std::move(found->second);
    entry->collections.erase(found);
    return true;
}

void PrefetchedCollections::forget() {
    for (const Entry& entry : entries)
        judge(entry);
    entries.clear();
}

void PrefetchedCollections::judge(const Entry& entry) {
    backoff.judge(entry.loaded, entry.loaded - entry.collections.size());
}

void PrefetchedCollections::discard() {
    entries.clear();
    backoff.noteFailure();
}

}  // namespace Kes
