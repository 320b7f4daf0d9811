// Writing the rows of a queue.
//
// Rows are written in the order of their classes' names and their ids, so that
// sessions which change the same objects do not wait for each other crosswise,
// unless they write more than one queue of them.
// Values are read from the instances, straight into the statements, which are
// posted: a connection need not wait for one before it sends the next.

#pragma once

#include <cstddef>
#include <vector>

#include "drivers/common/FieldBinder.h"
#include "drivers/common/SpareValues.h"
#include "drivers/common/StatementCache.h"
#include "drivers/common/WriteQueue.h"

namespace Kes::sql {

class RowWriter {
public:
    /// All are borrowed for life, here and in the other parts of a QueueWriter.
    RowWriter(WriteQueue& itsQueue, ModelMapping& itsTables, StatementCache& itsStatements,
              const Dialect& itsDialect, Connection& itsConnection)
        : queue(itsQueue),
          tables(itsTables),
          statements(itsStatements),
          dialect(itsDialect),
          connection(itsConnection),
          binder(itsDialect, itsConnection) {}

    /// Posts all rows. Throws PostFailure.
    void write();

private:
    bool precedes(std::size_t left, std::size_t right) const;
    bool isByRow(const std::vector<std::size_t>& order) const;
    void sortByRow(std::vector<std::size_t>& order) const;
    void preferRuns(std::vector<std::size_t>& removals, std::vector<std::size_t>& updates);
    std::size_t countRuns(const std::vector<std::size_t>& order) const;
    void lockRows(std::vector<std::size_t> order);
    void setAside(const std::vector<std::size_t>& updates);
    void postInOrder(const std::vector<std::size_t>& order);
    void post(std::size_t position);
    void postInsert(std::size_t position);
    void postInserts();
    void postMany(const std::size_t* run, std::size_t count);
    void postUpdate(std::size_t position);
    void postRemove(std::size_t position);

    WriteQueue& queue;
    ModelMapping& tables;
    StatementCache& statements;
    const Dialect& dialect;
    Connection& connection;
    FieldBinder binder;
    SpareValues spares;
};

}  // namespace Kes::sql
