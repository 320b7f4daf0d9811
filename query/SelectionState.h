// What an iterating selection keeps beside its cursors.

#pragma once

#include <cstdint>
#include <deque>
#include <exception>
#include <memory>

#include <kes/Pointer.h>

#include "core/Platform.h"
#include "identity/RowNews.h"
#include "query/DeliveryObserver.h"
#include "query/MergeHeap.h"

namespace Kes {

class SelectionState {
public:
    const std::uint32_t thread = platform::currentThreadId();  // whose cursors they are
    std::unique_ptr<MergeHeap> merge;                          // null when nothing is merged
    Delivery delivery;
    std::deque<Pointer<Instance>> ahead;  // read, and not delivered yet
    std::exception_ptr failure;           // what ended the reading ahead
    std::uint64_t toCome = 0;             // rows that may be delivered yet
    std::uint64_t toSkip = 0;             // rows before the next one

    // Tells the object cache that rows may come that were read long ago.
    RowNews::Reading reader;
};

}  // namespace Kes
