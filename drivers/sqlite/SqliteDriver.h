// The driver for SQLite.

#pragma once

#include "drivers/common/SqlDriver.h"

namespace Kes::sql {

/// `source` is a file name or ":memory:"; user and password are not used.
///
/// Options: create (true), readonly (false), busy_timeout in ms (5000),
/// journal_mode (wal), synchronous (full), cache_size and mmap_size in KiB
/// (16384, 0), secure_delete (off), max_page_count (0: the file's own limit),
/// mode (permissions of a new file, octal), uri (false: the source is a name).
class SqliteDriver final : public SqlDriver {
public:
    SqliteDriver();

private:
    std::unique_ptr<Connection> connect(const String& source, const String& password,
                                        const String& user, const String& options) override;
};

}  // namespace Kes::sql
