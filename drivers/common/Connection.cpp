#include "drivers/common/Connection.h"

#include <limits>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

void Statement::bindList(int, const std::vector<std::int64_t>&) {
    throw SqlFailure("the database takes no list as a parameter");
}

void Statement::post(std::size_t ticket, long least) {
    long written = 0;
    try {
        written = run();
    } catch (const SqlFailure& failure) {
        throw PostFailure(ticket, failure);
    }
    if (written < least)
        throw PostFailure(ticket);
}

// Taken in a transaction of its own, unless one is open.
IdBlock Connection::takeIds(unsigned long least, unsigned long count) {
    const bool own = !inTransaction();
    if (own)
        begin();
    try {
        const auto advance = prepare(
            "UPDATE kes_ids SET next = (CASE WHEN next > ? THEN next ELSE ? END) + ? "
            "WHERE next <= ?");
        const auto read = prepare("SELECT next FROM kes_ids");
        constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();
        const std::int64_t last = most - static_cast<std::int64_t>(count);
        advance->bind(0, static_cast<std::int64_t>(least));
        advance->bind(1, static_cast<std::int64_t>(least));
        advance->bind(2, static_cast<std::int64_t>(count));
        advance->bind(3, last);
        const bool isDone = least <= static_cast<unsigned long>(last) && advance->run() == 1;
        const bool isKnown = read->step() && read->kind(0) == Row::Integer;
        if (!isDone && isKnown)
            throw SqlFailure("all object ids up to " + std::to_string(most) +
                             " have been given out; look at the table kes_ids");
        if (!isDone || !isKnown)
            throw SqlFailure("the table kes_ids has not exactly one row with a number; mend it");
        const auto end = static_cast<unsigned long>(read->integer(0));
        read->reset();
        if (own)
            commit();
        return {end - count, end, !own};
    } catch (...) {
        if (own)
            rollback();
        throw;
    }
}

}  // namespace Kes::sql
