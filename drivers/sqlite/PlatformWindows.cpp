#include <io.h>

#include <cerrno>

#include "drivers/sqlite/Platform.h"

namespace Kes::sql::platform {

// Files have lists of rights there, which three octal digits do not describe.
int makeFile(const char*, unsigned) {
    return ENOTSUP;
}

// Nobody can delete, move or replace a file there that SQLite has open.
bool identify(const char* name, FileId& id) noexcept {
    id = FileId();
    return ::_access(name, 0) == 0;
}

std::int64_t processId() noexcept {
    return 0;
}

}  // namespace Kes::sql::platform
