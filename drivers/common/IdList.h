// Lists of object ids as parameters of a statement.
//
// A list may be longer than a statement takes: it goes in parts, and how long they
// are changes no result.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "drivers/common/Connection.h"

namespace Kes::sql {

/// A part of a list. Lists have few lengths, so that few statements serve all of
/// them; the last id is repeated where there are too few.
class IdList {
public:
    // So many share a round trip that a longer list would gain little, and every
    // database takes as many parameters.
    static constexpr std::size_t Longest = 1024;

    /// The ids, which are borrowed, from `begin` on, and `longest` at most; all of
    /// them as one parameter where the database takes lists.
    IdList(const std::vector<std::int64_t>& itsIds, std::size_t begin, std::size_t longest,
           bool isOneParameter = false)
        : ids(itsIds),
          first(begin),
          last(std::min(begin + longest, itsIds.size())),
          isOne(isOneParameter) {
        while (!isOne && length < last - first)
            length *= 2;
    }

    /// The position behind the last id.
    std::size_t end() const { return last; }

    /// The parameters between parentheses.
    std::string text() const {
        std::string list = "(?";
        for (std::size_t i = 1; i < length; ++i)
            list += ", ?";
        return list + ")";
    }

    int parameters() const { return static_cast<int>(length); }

    void bindTo(Statement& statement) const {
        if (isOne) {
            const auto at = [&](std::size_t position) {
                return ids.begin() + static_cast<std::ptrdiff_t>(position);
            };
            statement.bindList(0, {at(first), at(last)});
            return;
        }
        for (std::size_t i = 0; i < length; ++i)
            statement.bind(static_cast<int>(i), ids[std::min(first + i, last - 1)]);
    }

private:
    const std::vector<std::int64_t>& ids;
    std::size_t first;
    std::size_t last;
    std::size_t length = 1;
    bool isOne;
};

}  // namespace Kes::sql
