// Choosing among the heads of sorted cursors.
//
// Delivering a row changes the head of one cursor only, the one on top of a
// binary heap, so the next choice costs as many comparisons as the heap is deep.
// Of equal heads the one of the lowest cursor comes first, as if all of them
// were compared in turn.
//
// Where some heads report a key and others do not, or report it as another kind,
// the comparison is undecided and no order any more: a can come before c while
// neither stands before or after b. Such heads are compared in turn indeed.

#pragma once

#include <cstddef>
#include <vector>

#include <kes/DBDriver.h>
#include <kes/PtrList.h>
#include <kes/PtrVector.h>

#include "query/MergeKeys.h"

namespace Kes {

class MergeHeap {
public:
    MergeHeap(const PtrList<SortOrder>& orders, bool takesFlags) : keys(orders, takesFlags) {}

    /// The position of the cursor whose head comes next; -1 when a head has no
    /// instance: asking its cursor once more might bring one, but out of order.
    /// Raises SORTFAIL (ERROR) for a boolean key, unless these are taken.
    int choose(const PtrVector<DBDriverSelection>& cursors);

    /// The cursor chosen last shows another row.
    void advanced(int position);

    /// The cursor chosen last was taken out; the later ones moved up.
    void ended(int position);

private:
    struct Head {
        std::vector<MergeKey> keys;
        bool known = false;
    };

    bool read(const PtrVector<DBDriverSelection>& cursors, int position);
    void arrange();
    void siftDown(std::size_t place);
    bool comesBefore(int a, int b) const;
    int chooseInTurn() const;

    MergeKeys keys;
    std::vector<Head> heads;  // in step with the cursors
    std::vector<int> heap;    // positions of cursors; the best in front
    bool arranged = false;
    bool undecided = false;  // some heads differ in the keys that they report
};

}  // namespace Kes
