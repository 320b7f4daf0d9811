// Values as the statement trace shows them.

#pragma once

#include <string>
#include <vector>

#include "drivers/mariadb/MariadbPosts.h"

namespace Kes::sql {

/// " {1, 'Ann', NULL}", with long values shortened.
std::string describe(const std::vector<MariadbValue>& values);

/// The number of rows, and the first few of them.
std::string describe(const MariadbPosts& posts);

}  // namespace Kes::sql
