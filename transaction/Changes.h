// The data of the unit of work: what a transaction knows of its changes.
//
// A change is an entry of one list; an instance knows the position of its own
// entry, so recording the n-th change looks at none of the others. What links
// do to references in memory stands in a journal of its own, which a rollback
// works off backwards.
//
// Plain functions work on it: see ReferenceJournal.h, PendingLinks.h,
// StoredState.h, Rollback.h and Commit.h.

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include <kes/Forward.h>
#include <kes/Instance.h>

#include "object/InstanceState.h"
#include "transaction/LinkIndex.h"
#include "transaction/Snapshot.h"

namespace Kes {

/// One recorded change.
struct Action {
    enum Kind : std::uint8_t {
        Add,
        Update,
        Remove,
        Link,
        Unlink,
        Dropped,    // an add that a removal cancelled: nothing of it is written
        Superseded  // an update or removal that a later entry stands for
    };

    Kind kind;
    bool firstIsOne = false;      // of links: `first` plays the association's first role
    bool applied = false;         // the driver has heard of it
    bool restored = false;        // of adds: the object was stored before, and removed
    bool changedNothing = false;  // of links: they were there, or gone, already
    bool isUnsure = false;        // of links: memory could not tell
    Instance* first;
    Instance* second = nullptr;          // of links
    Association* association = nullptr;  // of links
    Snapshot snapshot = nullptr;         // of updates and removals: the stored fields
    std::uint64_t digest = 0;            // of updates and adds: what `first` had before
    unsigned long firstVersion = 0;      // before the driver heard of it
    unsigned long secondVersion = 0;
};

/// A reference as it was before a link changed it.
struct Remembered {
    enum Kind : std::uint8_t { One, MemberAdded, MemberRemoved, LostLink };
    Kind kind;
    bool fetched;
    bool isFirst = false;     // of this reference in this transaction
    bool ownerIsOne = false;  // the owner plays the association's first role
    Instance* owner;
    void* ref;
    Instance* instance;
    unsigned long objectID = 0;
    const Association* association = nullptr;
};

/// An instance with the version that it had before.
struct Versioned {
    Instance* instance;
    unsigned long version;
};

struct Changes {
    using Actions = std::deque<Action>;

    /// With room for a few that are refused because memory has run out.
    Changes() { refused.reserve(16); }

    Actions pending;
    SnapshotStore snapshots;  // the snapshots that the actions name
    std::vector<Remembered> journal;
    LinkIndex links;

    /// Their change was refused at least once in this transaction; with the
    /// version that they were read with.
    std::vector<Versioned> refused;
    bool hasUnlisted = false;  // there was no memory to list one that was refused

    /// The driver has raised their rows' versions, and so were these raised.
    std::vector<Versioned> raised;

    std::vector<Instance*> pinned;  // by an undo or redo, which works on them

    /// A link was recorded after which memory may show something else than what
    /// is going to be stored.
    bool contested = false;

    /// The entry of the instance; null without.
    const Action* find(const Instance* instance) const {
        const std::uint32_t entry = InstanceState::entry(instance);
        return entry != 0 ? &pending[entry - 1] : nullptr;
    }

    /// Added and removed again: never stored.
    bool isDropped(const Instance* instance) const {
        const Action* entry = find(instance);
        return entry != nullptr && entry->kind == Action::Dropped;
    }

    /// Added by this transaction, or never stored at all.
    bool isNew(const Instance* instance) const {
        const Action* entry = find(instance);
        return entry != nullptr && (entry->kind == Action::Add || entry->kind == Action::Dropped);
    }

    void dropRefused() noexcept {
        refused.clear();
        hasUnlisted = false;
    }

    /// All but the pending actions and what was refused.
    void clearRecords() noexcept {
        snapshots.clear();
        journal.clear();
        links.clear();
        raised.clear();
        contested = false;
    }
};

}  // namespace Kes
