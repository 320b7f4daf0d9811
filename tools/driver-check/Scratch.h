// The database that the checks may fill.

#pragma once

#include <string>

#include "Check.h"

namespace Kes::check {

/// Looks whether the database can be used, marks it as used and chooses the tag
/// that this run's names carry. Returns what speaks against it, "" for nothing.
///
/// A source that names a file with something in it is refused before a driver
/// sees it. Databases are not asked for their tables, which the driver interface
/// has no way to do. A database that nobody has used with Kes gives out small object
/// ids and knows no model of this program; one that holds tables of somebody
/// else is noticed by the driver, which refuses to make a table that is there.
std::string prepareScratch(Settings& settings, bool force);

}  // namespace Kes::check
