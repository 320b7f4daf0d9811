#include "query/MergeHeap.h"

#include <numeric>
#include <utility>

#include <kes/Calculator.h>
#include <kes/Instance.h>

namespace Kes {

int MergeHeap::choose(const PtrVector<DBDriverSelection>& cursors) {
    heads.resize(static_cast<std::size_t>(cursors.size()));
    if (arranged) {
        const int top = heap.front();
        if (!heads[static_cast<std::size_t>(top)].known && !read(cursors, top))
            return -1;
        if (!undecided) {
            siftDown(0);
            return heap.front();
        }
        arranged = false;
    }
    for (int i = 0; i < cursors.size(); ++i)
        if (!heads[static_cast<std::size_t>(i)].known && !read(cursors, i))
            return -1;
    if (undecided)
        return chooseInTurn();
    arrange();
    return heap.front();
}

void MergeHeap::advanced(int position) {
    if (!heads.empty())
        heads[static_cast<std::size_t>(position)].known = false;
}

void MergeHeap::ended(int position) {
    if (heads.empty())
        return;
    heads.erase(heads.begin() + position);
    if (!arranged)
        return;
    heap.front() = heap.back();
    heap.pop_back();
    for (int& each : heap)
        if (each > position)
            --each;
}

// False when the cursor has no instance.
bool MergeHeap::read(const PtrVector<DBDriverSelection>& cursors, int position) {
    Instance* instance = cursors[position]->getInstance();
    if (instance == nullptr)
        return false;
    Head& head = heads[static_cast<std::size_t>(position)];
    keys.read(dynamic_cast<StoredKeys*>(cursors[position]), instance, head.keys);
    head.known = true;
    if (!keys.isAlike(head.keys))
        undecided = true;
    return true;
}

void MergeHeap::arrange() {
    heap.resize(heads.size());
    std::iota(heap.begin(), heap.end(), 0);
    for (std::size_t place = heap.size() / 2; place-- > 0;)
        siftDown(place);
    arranged = true;
}

void MergeHeap::siftDown(std::size_t place) {
    for (;;) {
        std::size_t child = 2 * place + 1;
        if (child >= heap.size())
            return;
        if (child + 1 < heap.size() && comesBefore(heap[child + 1], heap[child]))
            ++child;
        if (!comesBefore(heap[child], heap[place]))
            return;
        std::swap(heap[child], heap[place]);
        place = child;
    }
}

bool MergeHeap::comesBefore(int a, int b) const {
    const std::vector<MergeKey>& ofA = heads[static_cast<std::size_t>(a)].keys;
    const std::vector<MergeKey>& ofB = heads[static_cast<std::size_t>(b)].keys;
    const int order = keys.compare(ofA, ofB);
    return order != 0 ? order < 0 : a < b;
}

int MergeHeap::chooseInTurn() const {
    std::size_t best = 0;
    for (std::size_t i = 1; i < heads.size(); ++i)
        if (keys.compare(heads[i].keys, heads[best].keys) < 0)
            best = i;
    return static_cast<int>(best);
}

}  // namespace Kes
