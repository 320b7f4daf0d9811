// What an iterating selection keeps beside its cursors.

#pragma once

#include <cstdint>
#include <memory>

#include "query/MergeHeap.h"

namespace Kes {

class SelectionState {
public:
    std::unique_ptr<MergeHeap> merge;  // null when nothing is merged
    std::uint64_t siblingToken = 0;
};

}  // namespace Kes
