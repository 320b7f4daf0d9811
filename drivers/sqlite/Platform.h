// What the driver needs of the operating system.

#pragma once

namespace Kes::sql::platform {

/// Makes an empty file with exactly these permissions (as in 0600), unless
/// there is a file of that name. Returns 0, or the system's error number.
int makeFile(const char* name, unsigned permissions);

}  // namespace Kes::sql::platform
