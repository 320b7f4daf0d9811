// What an iterating selection keeps beside its cursors.

#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include <kes/DBDriver.h>

#include "query/MergeKeys.h"

namespace Kes {

class SelectionState {
public:
    // The keys of each open cursor's head, in step with the cursors.
    struct Head {
        std::vector<MergeKey> keys;
        bool known = false;
    };

    std::unique_ptr<MergeKeys> merge;  // null when nothing is merged
    std::vector<Head> heads;
    std::uint64_t siblingToken = 0;
    bool failed = false;
};

}  // namespace Kes
