// What the driver needs of the operating system.

#pragma once

#include <cstdint>

namespace Kes::sql::platform {

/// Makes an empty file with exactly these permissions (as in 0600), unless
/// there is a file of that name. Returns 0, or the system's error number.
int makeFile(const char* name, unsigned permissions);

/// Tells files apart, also those that had one name after each other.
struct FileId {
    std::uint64_t device = 0;
    std::uint64_t number = 0;
    bool operator==(const FileId&) const = default;
};

/// False when there is no such file. Needs no memory.
bool identify(const char* name, FileId& id) noexcept;

/// Of this process; the same for all where a process cannot be forked.
std::int64_t processId() noexcept;

}  // namespace Kes::sql::platform
