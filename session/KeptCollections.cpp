#include "session/KeptCollections.h"

#include <utility>

namespace Kes {

namespace {

// What somebody else commits is seen after that time at the latest.
constexpr std::chrono::seconds Lifetime(1);

}  // namespace

KeptCollections::Entry* KeptCollections::find(const Association* association,
                                              const String& role) {
    for (Entry& entry : entries)
        if (entry.association == association && entry.role == role)
            return &entry;
    return nullptr;
}

void KeptCollections::keep(const Association* association, const String& role,
                           Collections&& collections) {
    const std::size_t loaded = collections.size();
    if (Entry* entry = find(association, role)) {
        judge(*entry);
        entry->collections = std::move(collections);
        entry->loaded = loaded;
        entry->when = Clock::now();
        return;
    }
    entries.push_back(
        {association, role.unshared(), std::move(collections), loaded, Clock::now()});
}

bool KeptCollections::take(const Association* association, const String& role,
                           unsigned long owner, std::vector<KeptMember>& members) {
    Entry* entry = find(association, role);
    if (entry == nullptr || Clock::now() - entry->when > Lifetime)
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
    if (entry.collections.size() * 2 > entry.loaded)
        pause.noteFailure();
    else
        pause.noteSuccess();
}

void KeptCollections::noteWaste() {
    entries.clear();
    pause.noteFailure();
}

}  // namespace Kes
