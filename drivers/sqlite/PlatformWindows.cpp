#include <cerrno>

#include "drivers/sqlite/Platform.h"

namespace Kes::sql::platform {

// Files have lists of rights there, which three octal digits do not describe.
int makeFile(const char*, unsigned) {
    return ENOTSUP;
}

}  // namespace Kes::sql::platform
