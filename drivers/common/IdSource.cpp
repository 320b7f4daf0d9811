#include "drivers/common/IdSource.h"

#include <algorithm>

#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

namespace {

constexpr unsigned long LargestBlock = 16384;

}  // namespace

unsigned long IdSource::take() {
    if (needsBlock())
        takeBlock();
    highest = next;
    return next++;
}

void IdSource::takeBlock() {
    size = std::min(size * 2, LargestBlock);
    const bool own = !connection.inTransaction();
    if (own)
        connection.begin();
    try {
        if (advance == nullptr) {
            advance = connection.prepare(
                "UPDATE kes_ids SET next = (CASE WHEN next > ? THEN next ELSE ? END) + ?");
            read = connection.prepare("SELECT next FROM kes_ids");
        }
        const auto least = static_cast<std::int64_t>(highest + 1);
        advance->bind(0, least);
        advance->bind(1, least);
        advance->bind(2, static_cast<std::int64_t>(size));
        if (advance->run() != 1 || !read->step())
            throw SqlFailure("the table kes_ids has not exactly one row; mend it");
        const auto limit = static_cast<unsigned long>(read->integer(0));
        read->reset();
        if (own)
            connection.commit();
        next = limit - size;
        end = limit;
        isUncommitted = !own;
    } catch (...) {
        if (own)
            connection.rollback();
        throw;
    }
}

void IdSource::noteRollback() {
    if (!isUncommitted)
        return;
    highest = std::max(highest, end == 0 ? 0 : end - 1);
    next = end = 0;
    isUncommitted = false;
}

}  // namespace Kes::sql
