// Takes a database from version 1 of the model to version 2.

#pragma once

#include <functional>
#include <memory>
#include <ostream>

#include "packages/PackageModel.h"

namespace packages {

/// Opens the same database with the given version of the model.
using OpenModel = std::function<std::unique_ptr<PackageModel>(int version)>;

/// Upgrades, fills what is new, and compares every field and link of the old
/// model before and after. Throws std::runtime_error when anything differs or
/// when there is no catalogue.
void upgradeCatalogue(const OpenModel& open, std::ostream& out);

}  // namespace packages
