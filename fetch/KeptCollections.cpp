#include "fetch/KeptCollections.h"

#include <utility>

namespace Kes {

KeptCollections::Entry* KeptCollections::find(const Association* association, const String& role) {
    for (Entry& entry : entries)
        if (entry.association == association && entry.role == role)
            return &entry;
    return nullptr;
}

void KeptCollections::keep(const Association* association, const String& role,
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

bool KeptCollections::take(const Association* association, const String& role, unsigned long owner,
                           std::vector<KeptMember>& members) {
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

void KeptCollections::forget() {
    for (const Entry& entry : entries)
        judge(entry);
    entries.clear();
}

void KeptCollections::judge(const Entry& entry) {
    pause.judge(entry.loaded, entry.loaded - entry.collections.size());
}

void KeptCollections::noteWaste() {
    entries.clear();
    pause.noteFailure();
}

}  // namespace Kes
