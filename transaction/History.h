// Undo log: what committed transactions did, for undo and redo.
//
// Steps name objects by their ids and hold no instance, so the history keeps
// nothing in memory but itself. The snapshots of a commit move into its entry as
// they are; nothing is copied.

#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <vector>

#include <kes/Forward.h>

#include "transaction/Snapshot.h"

namespace Kes {

/// One change that a commit made to one object or to one of its references.
struct Step {
    enum Kind : std::uint8_t {
        Added,
        Changed,
        Removed,
        Pointed,  // a one-reference leads to another partner
        Linked,   // many-to-many
        Unlinked  // many-to-many
    };

    Kind kind;
    bool firstIsOne = false;  // of references: the object plays the first role
    bool isTold = false;      // by the driver, of a row that the commit wrote besides
    unsigned long id = 0;
    Class* cls = nullptr;                // the object's
    Association* association = nullptr;  // of references
    std::uint64_t digest = 0;            // of the object's stored fields afterwards
    unsigned long other = 0;             // Pointed: the partner before; links: the other end
    unsigned long after = 0;             // Pointed: the partner; Removed: the version
    Snapshot snapshot = nullptr;         // Changed, Removed: the fields before
};

/// What one commit did.
struct CommittedSteps {
    std::vector<Step> steps;
    SnapshotStore snapshots;
};

class History {
public:
    enum Direction { Undo, Redo };

    /// One transaction; several commits where changes were made without a
    /// transaction after it. Newest last.
    struct Record {
        std::list<CommittedSteps> commits;
        bool isUsed = false;  // holds, or waits for, a step
        bool started = true;  // by startTransaction
        bool isVoid = false;  // what it was opened for was rolled back
    };

    /// What a commit is going to leave, with all the memory that takes. It is
    /// made before the commit is asked for: one that stands must not fail.
    class Draft {
    public:
        Draft() : commit(1), record(1) {}
        CommittedSteps& steps() { return commit.front(); }

    private:
        friend class History;
        std::list<CommittedSteps> commit;
        std::list<Record> record;
    };

    /// Empties the redo list and opens a record, unless the newest is unused.
    void start();

    /// A change is recorded: the newest record is where it will stand.
    void noteStep();

    /// The changes that were noted are not going to be committed.
    void dropNoted() noexcept;
    void rollBack() noexcept;

    void keep(Draft& done) noexcept;

    /// The place of a transaction that was rolled back is nothing to undo. It
    /// goes where there is an older one.
    void dropVoid() noexcept;

    /// The newest record of that direction was worked off; `reversed` turns it
    /// round again.
    void reverseNewest(Direction direction, Draft& reversed) noexcept;

    const Record* newest(Direction direction) const {
        const std::list<Record>& list = direction == Undo ? undoList : redoList;
        return list.empty() ? nullptr : &list.front();
    }

    /// Whether what is removed now can ever be brought back.
    bool isKept() const { return maxUndoSize > 0 || !undoList.empty(); }

    void setMaxUndoSize(int transactions);
    int getMaxUndoSize() const { return maxUndoSize; }
    void clear();

private:
    void open(bool started);
    void trim(int transactions);

    std::list<Record> undoList;  // newest first
    std::list<Record> redoList;  // newest first
    int maxUndoSize = 128;
};

}  // namespace Kes
