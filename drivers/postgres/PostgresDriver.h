// The driver for PostgreSQL.

#pragma once

#include "drivers/common/SqlDriver.h"

namespace Kes::sql {

/// `source` is a URL (postgresql://host:port/database), a text of key=value
/// pairs or the name of a database.
///
/// Options: schema (the first of the search path), statement_timeout in ms (as
/// the server is set up), lock_timeout in ms (5000; 0 waits for ever),
/// network_timeout in seconds of silence (0: none), isolation (read committed),
/// pooler (none; session where one keeps sessions apart, transaction where it does
/// not), and every connection parameter of libpq, like sslmode or connect_timeout.
class PostgresDriver final : public SqlDriver {
public:
    PostgresDriver();

private:
    std::unique_ptr<Connection> connect(const String& source, const String& password,
                                        const String& user, const String& options) override;
    std::string shownSource(const String& source) const override;
};

}  // namespace Kes::sql
