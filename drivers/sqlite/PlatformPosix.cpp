#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "drivers/sqlite/Platform.h"

namespace Kes::sql::platform {

// Nobody else may open the file before it has its permissions, and the
// process's mask takes some away from those that it is made with.
int makeFile(const char* name, unsigned permissions) {
    const int file = ::open(name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0) {
        // A link that leads nowhere is there too, and SQLite would make what it names.
        struct stat found;
        return errno == EEXIST && ::stat(name, &found) == 0 ? 0 : errno;
    }
    const int fault = ::fchmod(file, permissions) == 0 ? 0 : errno;
    ::close(file);
    return fault;
}

bool identify(const char* name, FileId& id) noexcept {
    struct stat found;
    if (::stat(name, &found) != 0)
        return false;
    id = {static_cast<std::uint64_t>(found.st_dev), static_cast<std::uint64_t>(found.st_ino)};
    return true;
}

std::int64_t processId() noexcept {
    return ::getpid();
}

}  // namespace Kes::sql::platform
