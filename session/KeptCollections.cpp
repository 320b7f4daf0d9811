#include "session/KeptCollections.h"

#include <algorithm>
#include <utility>

namespace Kes {

namespace {

// Waste after waste the pause doubles, up to 2^10 loadings.
constexpr unsigned MostWastes = 10;

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
        return;
    }
    entries.push_back({association, role, std::move(collections), loaded});
}

bool KeptCollections::take(const Association* association, const String& role,
                           unsigned long owner, std::vector<unsigned long>& members) {
    Entry* entry = find(association, role);
    if (entry == nullptr)
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

void KeptCollections::noteFreed() {
    entries.clear();
    noteWaste();
}

bool KeptCollections::mayLoadTogether() {
    if (pause == 0)
        return true;
    --pause;
    return false;
}

void KeptCollections::judge(const Entry& entry) {
    if (entry.collections.size() * 2 > entry.loaded)
        noteWaste();
    else
        wastes = 0;
}

void KeptCollections::noteWaste() {
    wastes = std::min(wastes + 1, MostWastes);
    pause = std::size_t{1} << wastes;
}

}  // namespace Kes
