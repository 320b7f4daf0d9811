// Statements as the trace shows them.

#pragma once

#include <string>
#include <vector>

#include "drivers/mariadb/MariadbPosts.h"

namespace Kes::sql {

/// The text with the values in their places, long ones shortened.
std::string expanded(const std::string& text, const std::vector<MariadbValue>& values);

/// The same with the first of many rows, and the number of them.
std::string expanded(const std::string& text, const MariadbPosts& posts);

}  // namespace Kes::sql
