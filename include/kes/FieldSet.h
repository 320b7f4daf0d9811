// A set of field positions.

#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Kes {

/// Positions of fields in the order in which Instance::handle reports them:
/// "KesObjectID" is 0, "KesVersion" 1. Association fields are not counted.
class FieldSet {
public:
    /// Takes all positions out; the memory is kept for the next use.
    void clear() { words.assign(words.size(), 0); }

    /// Adds a position; the set grows by as many words as it takes, 64 positions each.
    void insert(std::size_t position) {
        if (position / 64 >= words.size())
            words.resize(position / 64 + 1);
        words[position / 64] |= std::uint64_t{1} << position % 64;
    }

    /// Constant time; false for any position beyond the last one that was added.
    bool contains(std::size_t position) const {
        return position / 64 < words.size() && (words[position / 64] >> position % 64 & 1) != 0;
    }

    /// Whether there is no position at all. Linear in the number of words.
    bool empty() const {
        for (const std::uint64_t word : words)
            if (word != 0)
                return false;
        return true;
    }

    /// Positions 0 to 63 in the first word, and so on; trailing words may be
    /// zero or missing.
    const std::vector<std::uint64_t>& getWords() const { return words; }

private:
    std::vector<std::uint64_t> words;
};

}  // namespace Kes
