// The driver for MariaDB and Galera clusters.

#pragma once

#include "drivers/common/SqlDriver.h"

namespace Kes::sql {

/// `source` is `host[:port]/database`, also with several hosts separated by
/// commas, of which the first that answers is taken, or the path of a socket
/// and the database behind it, `/run/mysqld/mysqld.sock/database`.
///
/// Options: database, when the source does not end in it; connect_timeout in
/// seconds for each host (5); network_timeout in seconds (0: none);
/// lock_timeout in ms, rounded up to seconds (5000); statement_timeout in ms
/// (0: none); isolation (read committed, repeatable read, serializable);
/// causal_reads on a cluster (true); tls (off, on, verify) with tls_ca, tls_cert,
/// tls_key.
class MariadbDriver final : public SqlDriver {
public:
    MariadbDriver();

private:
    std::unique_ptr<Connection> connect(const String& source, const String& password,
                                        const String& user, const String& options) override;
    std::string shownSource(const String& source) const override;
};

}  // namespace Kes::sql
