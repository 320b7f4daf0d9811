// Making sure of the partners that a queue's links lead to.
//
// A link to an object that somebody else has removed would dangle. So partners
// that this commit does not write itself are looked for, and kept from being
// removed until the transaction ends.

#pragma once

#include <cstdint>
#include <vector>

#include "drivers/common/StatementCache.h"
#include "drivers/common/WriteQueue.h"

namespace Kes::sql {

class PartnerCheck {
public:
    PartnerCheck(const WriteQueue& itsQueue, ModelMapping& itsTables, StatementCache& itsStatements,
                 const Dialect& itsDialect)
        : queue(itsQueue),
          tables(itsTables),
          statements(itsStatements),
          dialect(itsDialect) {}

    /// Throws SqlFailure for the first that is not stored.
    void run();

private:
    void check(Class* cls, const std::vector<std::int64_t>& ids);
    [[noreturn]] void failOnPartner(std::int64_t id) const;

    const WriteQueue& queue;
    ModelMapping& tables;
    StatementCache& statements;
    const Dialect& dialect;
};

}  // namespace Kes::sql
