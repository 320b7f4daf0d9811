// What a staff database holds, seen from two sides.

#pragma once

#include <string>

#include "tests/support/StaffModel.h"

namespace Kes::testing {

/// People, firms, vehicles and links, for programs to work on.
void fillStaff(StaffModel& model);

/// The rows of the file, with or without their versions.
std::string storedStaff(const std::string& file, bool withVersions);

/// The objects as the model shows them: fields, versions and references, from
/// both ends of each link.
std::string shownStaff(StaffModel& model);

}  // namespace Kes::testing
