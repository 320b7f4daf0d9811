// Statements as the trace shows them.

#pragma once

#include <string>

#include "drivers/postgres/PostgresWire.h"

namespace Kes::sql {

/// A statement, which has ? for each parameter, with its values filled in.
std::string expanded(const std::string& text, const WireValues& values);

}  // namespace Kes::sql
