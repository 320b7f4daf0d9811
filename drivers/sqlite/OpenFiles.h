// The database files that this process has open.
//
// SQLite keeps the locks of all connections of a process in one place, by file,
// and a fork copies that place though not the locks. A connection of the child
// would take the parent's locks for its own, and read what others are writing; and
// the parent, which sees none of the child's, would delete the log that it writes to.

#pragma once

#include <cstdint>

#include "drivers/sqlite/Platform.h"

namespace Kes::sql {

/// A file that is open for as long as this lives.
class OpenFile {
public:
    /// Throws SqlFailure when a process that this one was forked from has the file
    /// open, or had it when it forked. `path` is "" for a database without a file.
    explicit OpenFile(const char* path);
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;
    ~OpenFile();

private:
    struct Entry {
        platform::FileId id;
        std::int64_t process = 0;
        const OpenFile* owner = nullptr;
    };
    class List;

    static List& list();
};

}  // namespace Kes::sql
