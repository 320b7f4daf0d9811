// Write-behind queue: what one transaction writes, folded in memory.
//
// The library tells of an object and of its links by separate calls. They meet
// here: each row has one operation in the queue, links are folded into it, and
// what a removal makes pointless is dropped. No statement is known here and no
// database asked; what becomes of the queue is the business of QueueWriter. The
// values stay in the instances until it reads them.
//
// A link that is dissolved is taken out of a row only where it stands there, for
// what memory shows is no proof of what is stored: to dissolve the link of two
// objects touches nothing but that link.
//
// Whatever writes a row raises its version, once in a commit, also where only a
// reference is emptied, taken over or dissolved. The version that a row must
// still have, an optimistic lock, is the one before the first raise in the queue.
// The library raises the version of a link's first instance; where the link lies
// in the second instance's row, the queue raises that one, unless the commit
// writes the row by an action of its own.
//
// The queue is flushed when it is full, and how long it is changes no result:
// what a flush has written is remembered until the transaction ends.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <map>
#include <tuple>
#include <unordered_set>
#include <vector>

#include <kes/FieldSet.h>
#include <kes/Instance.h>

#include "drivers/common/FieldBinder.h"
#include "drivers/common/InstanceMap.h"
#include "drivers/common/ModelMapping.h"

namespace Kes::sql {

// Written by this very commit, so nobody else can have removed it unnoticed.
inline const Instance* unlessWritten(const Instance* instance) {
    return instance != nullptr && !instance->inTransaction() ? instance : nullptr;
}

class WriteQueue {
public:
    enum class Kind : std::uint8_t { Nothing, Insert, Update, Remove, Link, Unlink };

    /// What becomes of one row. Slots are used again, so that their lists keep
    /// their room.
    struct Operation {
        Kind kind = Kind::Nothing;
        bool raised = false;  // the queue has raised the version
        Instance* instance = nullptr;
        unsigned long expected = 0;  // the version that the row must have
        ColumnSet set;
        std::vector<LinkValue> links;

        // Of links in tables of their own: the role that `instance` plays.
        const Association* association = nullptr;
        const String* role = nullptr;
        Instance* other = nullptr;
    };

    /// The tables are borrowed, and asked for columns only. `itsLongest` is the
    /// number of operations that make the queue full: a short queue stays in the
    /// processor's caches; where a flush costs round trips by the kinds of its
    /// statements, a longer one is better.
    WriteQueue(ModelMapping& itsTables, std::size_t itsLongest)
        : tables(itsTables),
          longest(itsLongest) {}
    WriteQueue(const WriteQueue&) = delete;
    WriteQueue& operator=(const WriteQueue&) = delete;

    void insert(Instance* instance);
    void update(Instance* instance);
    void remove(Instance* instance);
    void link(bool made, Instance* first, const String& firstRole, Instance* second,
              const String& secondRole, Association* association, bool linkFlag);

    bool isEmpty() const { return used == 0; }

    /// What comes later may give up the unique value that a row in the queue
    /// takes, so rows of classes with unique indexes wait for the end of the
    /// transaction.
    bool isFull() const { return !holdsUnique && used >= longest; }

    /// All is written; `goesOn` tells that the transaction may have more to write.
    void finish(bool goesOn);

    /// Forgets what waits, and what the transaction wrote before.
    void clear();

    // --- for those who write it ---

    std::size_t size() const { return used; }
    Operation& operator[](std::size_t position) { return operations[position]; }
    const Operation& operator[](std::size_t position) const { return operations[position]; }

    /// Of the operation of the instance's row; InstanceMap::None without.
    std::uint32_t positionOf(const Instance* instance) const { return positions.find(instance); }

    /// Whether rows of classes with unique indexes are written.
    bool takesUnique() const { return holdsUnique; }

    /// The positions of the operations that are wanted, in the order of the calls.
    std::vector<std::size_t> all(bool (*isWanted)(Kind)) const;
    static bool isInsertion(Kind kind) { return kind == Kind::Insert; }
    static bool isUpdate(Kind kind) { return kind == Kind::Update; }
    static bool isRemoval(Kind kind) { return kind == Kind::Remove; }
    static bool isLink(Kind kind) { return kind == Kind::Link || kind == Kind::Unlink; }

    /// Brings those together that one statement writes.
    void sortIntoRuns(std::vector<std::size_t>& order) const;

    /// The columns that an operation writes, with those of its links.
    ColumnSet& enterLinks(Operation& operation);

    /// What the row is going to have in the column anyway.
    bool isForgotten(Instance* owner, int column);

    /// By a call of this commit, which raises the version.
    bool isWritten(const Instance* owner);

    /// It may get links later that the row holds already, where it was written with
    /// the references that memory shows.
    void noteInserted(const Instance* instance, bool asInMemory);

    /// The row may hold another partner than the one that it was inserted with.
    void noteRewritten(const Instance* owner);

    // Of one-to-one links: who refers to the partner by the role in the end, and
    // whether somebody may be stored who did so before.
    using Held = std::tuple<Association*, bool, const Instance*>;
    struct Holder {
        Instance* instance = nullptr;
        bool mayHaveForerunner = false;
    };
    const std::map<Held, Holder>& getHolders() const { return holders; }

    // Further partners that one reference loses where it leads to them.
    struct Dissolved {
        std::size_t position;
        int column;
        std::int64_t partner;
    };
    const std::vector<Dissolved>& getDissolved() const { return dissolved; }

    /// Whether this transaction has parted somebody from a partner in another way than
    /// by the removal of one of a pair: such a row is written, and may lead elsewhere
    /// than memory has shown.
    bool hasParted(const Association* association) const {
        return std::find(parted.begin(), parted.end(), association) != parted.end();
    }

private:
    // What a link call does to a reference.
    enum class Change : std::uint8_t { Make, Dissolve, Empty };

    Operation& add(Kind kind, Instance* instance);
    Operation* find(const Instance* instance);
    static void enterColumn(Operation& operation, int column);
    void addColumns(Operation& operation, const TableMapping& table, Instance* instance);
    void setReference(Instance* owner, const String& role, Instance* partner, Change change,
                      bool elsewhere, bool raisedBefore);
    Operation& addRow(Instance* owner, bool elsewhere, bool raisedBefore);
    void enterLink(Operation& row, int column, Instance* partner, Change change);
    void takeFromOthers(Instance* owner, const String& role, Instance* partner,
                        Association* association);
    bool wasInserted(unsigned long id);
    bool isAsInserted(const Instance* owner);
    static bool holds(Instance* owner, const String& role, const Instance* partner);
    static bool isRow(Kind kind) {
        return kind == Kind::Insert || kind == Kind::Update || kind == Kind::Remove;
    }
    void forget();

    ModelMapping& tables;
    const std::size_t longest;
    std::vector<Operation> operations;
    std::size_t used = 0;
    InstanceMap positions;                // of row operations
    std::vector<unsigned long> inserted;  // flushed in this transaction
    bool insertedIsSorted = true;
    std::unordered_set<const Instance*> rewritten;  // of those, otherwise than memory shows
    bool holdsUnique = false;                       // rows of classes with unique indexes
    const Class* lastClass = nullptr;               // whose row was queued last
    std::map<Held, Holder> holders;
    std::vector<Dissolved> dissolved;
    std::vector<const Association*> parted;  // until the transaction ends

    // Their versions were raised by a flush before the last of this transaction,
    // and not by an action of their own.
    std::unordered_set<const Instance*> raisedEarlier;
    FieldSet changed;
};

}  // namespace Kes::sql
