// What the parts of a condition add to its depth; see Dialect::mostDepth().

#pragma once

#include <cstddef>

namespace Kes::sql {

// What a query within a condition and one in parentheses hold of a database's parser:
// the first operand in parentheses waits for nothing but them.
inline constexpr std::size_t QueryDepth = 8;
inline constexpr std::size_t FirstDepth = 1;
inline constexpr std::size_t OtherDepth = 3;
inline constexpr std::size_t LeafDepth = 4;  // of a comparison with a pattern, the deepest one

}  // namespace Kes::sql
