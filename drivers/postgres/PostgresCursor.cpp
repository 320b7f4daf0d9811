#include "drivers/postgres/PostgresCursor.h"

#include <libpq-fe.h>

#include <algorithm>
#include <cstddef>

#include "drivers/postgres/PostgresConnection.h"

namespace Kes::sql {

namespace {

// Rows of a cursor that one round trip brings. Most queries end within the first batch;
// of those that do not, the third one is as large as batches get. They are bounded by
// rows and by bytes, for a batch is in memory as a whole.
constexpr int FirstBatch = 128;
constexpr int LargestBatch = 8192;
constexpr int Growth = 8;
constexpr std::size_t BatchSize = std::size_t{1} << 20;  // bytes, about

}  // namespace

PostgresCursor::PostgresCursor(PostgresConnection& itsConnection, const std::string& itsText)
    : PostgresStatement(itsConnection, itsText),
      name(itsConnection.freshName()) {}

PostgresCursor::~PostgresCursor() {
    PostgresCursor::reset();
}

// One round trip, also for a query with few rows.
void PostgresCursor::open() {
    generation = connection().enterCursor();
    isOpen = true;
    batch = FirstBatch;
    send("DECLARE " + name + " NO SCROLL CURSOR FOR " + native(), {});
    sendFetch();
    takeRows(connection().receive());
}

void PostgresCursor::sendFetch() {
    connection().wire().execute("FETCH FORWARD " + std::to_string(batch) + " FROM " + name,
                                {PostgresWire::Wish::Answer});
}

void PostgresCursor::fetch() {
    connection().demand(generation);
    adjustBatch();
    sendFetch();
    takeRows(connection().receive());
}

// Rows are as large as they were so far.
void PostgresCursor::adjustBatch() {
    const std::size_t size = std::max(PQresultMemorySize(rows.get()), std::size_t{1});
    const std::size_t fitting = BatchSize * static_cast<std::size_t>(rowCount()) / size;
    batch = static_cast<int>(std::clamp(
        fitting, std::size_t{1}, static_cast<std::size_t>(std::min(batch * Growth, LargestBatch))));
}

bool PostgresCursor::step() {
    if (!isStarted) {
        isStarted = true;
        try {
            open();
        } catch (...) {
            reset();
            isStarted = true;
            throw;
        }
    }
    if (rows == nullptr)
        return false;
    if (row + 1 >= rowCount() && rowCount() == batch)
        fetch();
    if (row + 1 < rowCount()) {
        ++row;
        return true;
    }
    if (isOpen)
        connection().leaveCursor(name, generation);
    isOpen = false;
    return false;
}

void PostgresCursor::reset() noexcept {
    if (isOpen)
        connection().leaveCursor(name, generation);
    isOpen = false;
    isStarted = false;
    PostgresStatement::reset();
}

long PostgresCursor::run() {
    long count = 0;
    while (step())
        ++count;
    reset();
    return count;
}

void PostgresCursor::post(std::size_t, long) {
    run();
}

}  // namespace Kes::sql
