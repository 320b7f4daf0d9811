// Index of the pending links by instance.
//
// Needed only when a reference is loaded while links are pending, so it is made
// then, and brought up to date with the links that came since.

#pragma once

#include <cstddef>
#include <unordered_map>
#include <vector>

#include <kes/Forward.h>

namespace Kes {

class LinkIndex {
public:
    void note(const Instance* instance, std::size_t action) { actions[instance].push_back(action); }

    /// The pending links that mention the instance, in recording order; null
    /// when there is none.
    const std::vector<std::size_t>* find(const Instance* instance) const {
        const auto found = actions.find(instance);
        return found == actions.end() ? nullptr : &found->second;
    }

    void clear() {
        actions.clear();
        covered = 0;
    }

    /// The number of actions that were looked at.
    std::size_t covered = 0;

private:
    std::unordered_map<const Instance*, std::vector<std::size_t>> actions;
};

}  // namespace Kes
