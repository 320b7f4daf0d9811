// Members stand in a vector in the order in which they came. A small set is
// searched from end to end; a larger one has an index beside it, an open
// addressing table of 1 + position, at most half full. A removed member leaves
// a null behind, and its index entry stays as a mark that probing passes over.

#include <kes/Many.h>

#include <algorithm>
#include <bit>
#include <new>

#include <kes/Instance.h>

namespace Kes {

namespace {

// A set that fits into a cache line is searched faster than an index, and most
// collections are no larger.
constexpr std::size_t SmallSize = 8;
constexpr std::size_t NotFound = static_cast<std::size_t>(-1);

std::size_t slotFor(const Instance* instance, std::size_t slots) {
    const auto bits = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(instance));
    return (bits >> 4) * 0x9E3779B97F4A7C15U >> 20 & (slots - 1);
}

}  // namespace

ManyReference::~ManyReference() = default;

std::size_t ManyReference::find(const Instance* instance) const {
    if (index.empty()) {
        for (std::size_t i = 0; i < members.size(); ++i)
            if (members[i] == instance)
                return i;
        return NotFound;
    }
    const std::size_t mask = index.size() - 1;
    for (std::size_t slot = slotFor(instance, index.size());; slot = (slot + 1) & mask) {
        if (index[slot] == 0)
            return NotFound;
        if (members[index[slot] - 1] == instance)
            return index[slot] - 1;
    }
}

// Without memory for it a large set is searched from end to end, too, until its
// next addition tries again.
void ManyReference::reindex() {
    if (members.size() < SmallSize) {
        index.clear();
        return;
    }
    try {
        index.assign(std::bit_ceil(members.size() * 4), 0);
    } catch (const std::bad_alloc&) {
        index.clear();
        return;
    }
    const std::size_t mask = index.size() - 1;
    for (std::size_t i = 0; i < members.size(); ++i) {
        if (members[i] == nullptr)
            continue;
        std::size_t slot = slotFor(members[i], index.size());
        while (index[slot] != 0)
            slot = (slot + 1) & mask;
        index[slot] = static_cast<std::uint32_t>(i + 1);
    }
}

void ManyReference::closeGaps() {
    std::erase(members, nullptr);
    cursor = 0;
    reindex();
}

// By their ids: databases deliver what no key orders as they please. Left alone
// under an iteration.
void ManyReference::sort() {
    const auto precedes = [](const Instance* a, const Instance* b) {
        return a->getObjectID() < b->getObjectID();
    };
    if (iterating != 0 || cursor != 0)
        return;
    std::erase(members, nullptr);
    const bool isSorted = std::is_sorted(members.begin(), members.end(), precedes);
    if (!isSorted)
        std::sort(members.begin(), members.end(), precedes);
    if (!isSorted || !index.empty())
        reindex();
}

void ManyReference::add(Instance* instance) {
    if (instance == nullptr || find(instance) != NotFound)
        return;
    if (members.size() > 2 * used + SmallSize && iterating == 0 && cursor == 0)
        closeGaps();
    members.push_back(instance);
    ++used;
    if (members.size() < SmallSize)
        return;
    if (index.size() < 2 * members.size()) {
        reindex();
        return;
    }
    const std::size_t mask = index.size() - 1;
    std::size_t slot = slotFor(instance, index.size());
    while (index[slot] != 0)
        slot = (slot + 1) & mask;
    index[slot] = static_cast<std::uint32_t>(members.size());
}

void ManyReference::remove(Instance* instance) {
    if (instance == nullptr)
        return;
    const std::size_t position = find(instance);
    if (position == NotFound)
        return;
    members[position] = nullptr;
    --used;
    if (used == 0 && iterating == 0 && cursor == 0)
        clear();
}

void ManyReference::reset() {
    cursor = 0;
}

bool ManyReference::next() {
    while (cursor < members.size())
        if (members[cursor++] != nullptr)
            return true;
    cursor = 0;
    return false;
}

Instance* ManyReference::value() {
    return cursor == 0 ? nullptr : members[cursor - 1];
}

bool ManyReference::contains(Instance* instance) const {
    return instance != nullptr && find(instance) != NotFound;
}

// Cursors that stand here find themselves at the end.
void ManyReference::clear() {
    members.clear();
    index.clear();
    used = 0;
    cursor = 0;
}

ManyReference::Cursor::Cursor(const ManyReference* reference, std::size_t start)
    : of(reference),
      position(start) {
    ++of->iterating;
    while (!atEnd() && of->members[position] == nullptr)
        ++position;
}

ManyReference::Cursor::Cursor(const Cursor& other) : of(other.of), position(other.position) {
    if (of != nullptr)
        ++of->iterating;
}

ManyReference::Cursor& ManyReference::Cursor::operator=(const Cursor& other) {
    if (other.of != nullptr)
        ++other.of->iterating;
    if (of != nullptr)
        --of->iterating;
    of = other.of;
    position = other.position;
    return *this;
}

ManyReference::Cursor::~Cursor() {
    if (of != nullptr)
        --of->iterating;
}

bool ManyReference::Cursor::atEnd() const {
    return of == nullptr || position >= of->members.size();
}

void ManyReference::Cursor::advance() {
    do
        ++position;
    while (!atEnd() && of->members[position] == nullptr);
}

}  // namespace Kes
