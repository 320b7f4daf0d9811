// A session that changes a catalogue, takes everything back, and shows what its
// listeners hear meanwhile.

#pragma once

#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "packages/PackageModel.h"

namespace packages {

/// Opens the same database again, for each session anew.
using OpenSession = std::function<std::unique_ptr<PackageModel>()>;

/// Changes the package of that name and adds one that depends on it; undoes and
/// redoes that; removes the package, and undoes all. With an empty name it
/// takes a package that some others depend on.
///
/// The catalogue is as before in the end, which is tested by reading all of it.
/// Throws std::runtime_error when it is not, or when there is no such package.
/// What was done is undone when anything else is thrown.
void tryChanges(const OpenSession& open, const std::string& name, std::ostream& out);

}  // namespace packages
