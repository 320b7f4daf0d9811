// A query of the server whose rows come when they are wanted.

#pragma once

#include <string>

#include "drivers/postgres/PostgresStatement.h"

namespace Kes::sql {

/// A query whose rows are fetched in batches, so that memory stays bounded and
/// other statements can be executed in between.
class PostgresCursor final : public PostgresStatement {
public:
    PostgresCursor(PostgresConnection& itsConnection, const std::string& itsText);
    ~PostgresCursor() override;

    bool step() override;
    void reset() noexcept override;
    long run() override;
    void post(std::size_t ticket, long least) override;

private:
    void open();
    void fetch();
    void sendFetch();
    void adjustBatch();

    std::string name;
    unsigned long generation = 0;  // of the transaction that it lives in
    int batch = 0;                 // rows
    bool isOpen = false;           // on the server
    bool isStarted = false;
};

}  // namespace Kes::sql
