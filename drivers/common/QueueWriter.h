// Writing what a queue holds.
//
// A flush first makes sure of the partners that others might have removed, then
// empties the references that one-to-one links take away, writes the rows,
// dissolves what refers to removed ones, and links and unlinks in tables of their
// own in the end.

#pragma once

#include <string>

#include "drivers/common/LinkWriter.h"
#include "drivers/common/PartnerCheck.h"
#include "drivers/common/RowWriter.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

class QueueWriter {
public:
    QueueWriter(WriteQueue& itsQueue, ModelMapping& itsTables, StatementCache& statements,
                const Dialect& dialect, Connection& itsConnection)
        : queue(itsQueue),
          tables(itsTables),
          connection(itsConnection),
          partners(itsQueue, itsTables, statements, dialect),
          links(itsQueue, itsTables, statements, dialect, itsConnection),
          rows(itsQueue, itsTables, statements, dialect, itsConnection) {}
    QueueWriter(const QueueWriter&) = delete;
    QueueWriter& operator=(const QueueWriter&) = delete;

    /// Writes the queue, which is empty then. Throws SqlFailure, with the object
    /// named, at the first write that fails. `goesOn` tells that the transaction
    /// may have more to write.
    void flush(bool goesOn);

    void tellEmptiedTo(EmptiedListener* listener) { links.tellEmptiedTo(listener); }
    void forgetModel() { links.forgetModel(); }

private:
    static const char* attemptOf(WriteQueue::Kind kind);
    [[noreturn]] void fail(const PostFailure& failure);
    std::string faultOfVersion(const WriteQueue::Operation& operation);
    std::string explainVersion(const WriteQueue::Operation& operation);

    WriteQueue& queue;
    ModelMapping& tables;
    Connection& connection;
    PartnerCheck partners;
    LinkWriter links;
    RowWriter rows;
};

}  // namespace Kes::sql
