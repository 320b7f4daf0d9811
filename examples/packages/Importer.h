// Stores a resolved catalogue in a database.

#pragma once

#include <cstddef>
#include <ostream>

#include "packages/Catalogue.h"
#include "packages/PackageModel.h"

namespace packages {

/// What an import stored, and how long recording and committing it took.
struct ImportResult {
    std::size_t objects = 0;
    std::size_t links = 0;
    double seconds = 0;
};

/// Whether the database holds any entry.
bool holdsCatalogue(PackageModel& model);

/// Stores the catalogue in one transaction, in which, with `replace`, the old
/// one goes. Nothing is stored when it fails: a Kes::Exception passes then.
///
/// Shows its progress on `out`.
ImportResult importCatalogue(PackageModel& model, const Catalogue& catalogue, bool replace,
                             std::ostream& out, bool onTerminal);

}  // namespace packages
