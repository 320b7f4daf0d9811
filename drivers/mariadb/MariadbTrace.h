// Statements as the trace shows them.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "drivers/mariadb/MariadbPosts.h"

namespace Kes::sql {

/// The text with the values in their places, long ones shortened.
std::string expanded(const std::string& text, const std::vector<MariadbValue>& values);

/// The same with the first of `count` rows, and their number.
std::string expanded(const std::string& text, const MariadbPosts& posts, std::size_t begin,
                     std::size_t count);

}  // namespace Kes::sql
