// Single entries and what they need.

#pragma once

#include <ostream>
#include <string>

#include "packages/PackageModel.h"

namespace packages {

/// Writes the fields and links of an entry. Throws std::runtime_error when
/// there is none of that name.
void showEntry(PackageModel& model, const std::string& name, std::ostream& out);

/// Writes all that an entry needs, directly or through others, by name.
/// Throws std::runtime_error when there is no entry of that name.
///
/// A virtual package is listed with its providers, of which any will do; it
/// ends there.
void showNeeds(PackageModel& model, const std::string& name, std::ostream& out);

}  // namespace packages
