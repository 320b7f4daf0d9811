#include "drivers/common/IdSource.h"

#include <algorithm>

namespace Kes::sql {

namespace {

// Blocks double up to this: a million insertions ask for ids some seventy times, and a
// session that ends leaves at most so many of the 2^63 ids unused.
constexpr unsigned long LargestBlock = 16384;

}  // namespace

unsigned long IdSource::take() {
    if (needsBlock())
        takeBlock();
    highest = next;
    return next++;
}

void IdSource::takeBlock() {
    size = std::min(size * 2, LargestBlock);
    const IdBlock block = connection.takeIds(highest + 1, size);
    next = block.first;
    end = block.end;
    isUncommitted = block.isUncommitted;
}

// Nor is the new server asked for more than the old one gave; it may have lost
// the objects with the highest ids together with the ids.
void IdSource::forget() {
    next = end = highest = 0;
    isUncommitted = false;
}

void IdSource::noteRollback() {
    if (!isUncommitted)
        return;
    highest = std::max(highest, end == 0 ? 0 : end - 1);
    next = end = 0;
    isUncommitted = false;
}

}  // namespace Kes::sql
