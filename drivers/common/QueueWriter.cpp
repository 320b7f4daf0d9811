#include "drivers/common/QueueWriter.h"

#include <kes/Class.h>

#include "drivers/common/ObjectFields.h"
#include "drivers/common/SqlFailure.h"

namespace Kes::sql {

void QueueWriter::flush(bool goesOn) {
    try {
        partners.run();
        links.emptyTaken();
        links.dissolveApart();
        rows.write();
        links.postDissolvers(goesOn);
        links.postLinks();
        connection.awaitPosts();
    } catch (const PostFailure& failure) {
        fail(failure);
    }
    queue.finish(goesOn);
}

const char* QueueWriter::attemptOf(WriteQueue::Kind kind) {
    switch (kind) {
    case WriteQueue::Kind::Insert: return "inserting";
    case WriteQueue::Kind::Update: return "updating";
    case WriteQueue::Kind::Remove: return "removing";
    default: return "linking";
    }
}

void QueueWriter::fail(const PostFailure& failure) {
    const WriteQueue::Operation& operation = queue[failure.ticket];
    std::string words = failure.what();
    if (failure.isStale) {
        try {
            words = faultOfVersion(operation);
        } catch (const SqlFailure&) {
            // A write behind it has failed too, and the database answers no more.
            words = "somebody else has changed or removed it; refresh it and try again";
        }
    }
    throw SqlFailure(std::string(attemptOf(operation.kind)) + " the " + nameOf(operation.instance) +
                         ": " + words,
                     failure.kind);
}

// Where a later write has failed too, the database may answer nothing any more.
std::string QueueWriter::faultOfVersion(const WriteQueue::Operation& operation) {
    try {
        return explainVersion(operation);
    } catch (const SqlFailure&) {
        if (!connection.inTransaction())
            throw;
        return "somebody else has changed it; refresh it and try again";
    }
}

std::string QueueWriter::explainVersion(const WriteQueue::Operation& operation) {
    Statement& asking = tables.of(operation.instance->getClass()).versionOf();
    asking.bind(0, static_cast<std::int64_t>(operation.instance->getObjectID()));
    const bool isStored = asking.step();
    const std::int64_t stored = isStored ? asking.integer(0) : 0;
    asking.reset();
    if (!isStored)
        return "somebody else has removed it";
    // A transaction that reads what was stored when it began sees no change.
    if (stored == static_cast<std::int64_t>(operation.expected))
        return "somebody else has changed it; refresh it and try again";
    return "somebody else has changed it: version " + std::to_string(stored) +
           " is stored and version " + std::to_string(operation.expected) +
           " was read; refresh it and try again";
}

}  // namespace Kes::sql
