#include "drivers/common/Connection.h"

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

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
        const auto advance =
            prepare("UPDATE kes_ids SET next = (CASE WHEN next > ? THEN next ELSE ? END) + ?");
        const auto read = prepare("SELECT next FROM kes_ids");
        advance->bind(0, static_cast<std::int64_t>(least));
        advance->bind(1, static_cast<std::int64_t>(least));
        advance->bind(2, static_cast<std::int64_t>(count));
        if (advance->run() != 1 || !read->step())
            throw SqlFailure("the table kes_ids has not exactly one row; mend it");
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
