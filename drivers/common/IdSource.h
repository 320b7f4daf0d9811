// Object ids in blocks.
//
// A block is taken from the database in a transaction of its own and before it
// is used, so an id is never given out twice, not after a crash and not by two
// processes. Blocks grow with use. While a transaction is open the block is
// taken within it; should that roll back, its ids are passed over for good.

#pragma once

#include "drivers/common/Connection.h"

namespace Kes::sql {

class IdSource {
public:
    explicit IdSource(Connection& itsConnection) : connection(itsConnection) {}

    /// True when the next id asks the database.
    bool needsBlock() const { return next == end; }
    unsigned long take();

    /// Gives up what is left of the block: the server that is met now may know
    /// nothing of it and give the same ids to somebody else.
    void forget();
    void noteRollback();
    void noteCommit() { isUncommitted = false; }

private:
    void takeBlock();

    Connection& connection;
    unsigned long next = 0;
    unsigned long end = 0;
    unsigned long size = 32;
    unsigned long highest = 0;  // given out or passed over so far
    bool isUncommitted = false;
};

}  // namespace Kes::sql
