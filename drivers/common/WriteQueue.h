// Writes between the driver's slots and the database.
//
// The library tells of an object and of its links by separate calls. They meet
// here: each row has one operation in the queue, links are folded into it, and
// what a removal makes pointless is dropped. Values are read from the instances
// when the queue is flushed, straight into the statements, which are posted: a
// connection need not wait for one before it sends the next.
//
// A flush first makes sure of the partners that others might have removed, then
// empties the references that one-to-one links take away, writes the rows,
// dissolves what refers to removed ones, and links and unlinks in tables of their
// own in the end.
//
// A link that is dissolved is taken out of a row only where it stands there, for
// what memory shows is no proof of what is stored.
//
// Whatever writes a row raises its version, once in a commit. The version that a
// row must still have is the one before the first raise in the queue. The library
// raises the version of a link's first instance; where the link lies in the second
// instance's row, the queue raises that one, unless the commit writes the row by an
// action of its own. Rows that lose a partner without being named have their
// version raised in the database, and the library, which is told of them, raises
// it in memory: whoever had the stored version has it afterwards.
//
// Rows are written in the order of their classes' names and their ids, so that
// sessions which change the same objects do not wait for each other crosswise.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <kes/EmptiedReferences.h>
#include <kes/FieldSet.h>
#include <kes/Instance.h>

#include "drivers/common/FieldBinder.h"
#include "drivers/common/InstanceMap.h"
#include "drivers/common/SpareValues.h"
#include "drivers/common/SqlFailure.h"
#include "drivers/common/Tables.h"

namespace Kes::sql {

class WriteQueue {
public:
    WriteQueue(Tables& itsTables, const Dialect& itsDialect, Connection& itsConnection)
        : tables(itsTables),
          dialect(itsDialect),
          connection(itsConnection),
          binder(itsDialect, itsConnection) {}
    WriteQueue(const WriteQueue&) = delete;
    WriteQueue& operator=(const WriteQueue&) = delete;

    void insert(Instance* instance);
    void update(Instance* instance);
    void remove(Instance* instance);
    void link(bool made, Instance* first, const String& firstRole, Instance* second,
              const String& secondRole, Association* association, bool linkFlag);

    /// Borrowed; null for nobody. It hears of references that are emptied in rows
    /// that no call names.
    void tellEmptiedTo(EmptiedListener* itsListener) { listener = itsListener; }

    bool isEmpty() const { return used == 0; }

    /// A short queue stays in the processor's caches; where a flush costs round
    /// trips by the kinds of its statements, a longer one is better. What comes
    /// later may give up the unique value that a row in the queue takes, so rows
    /// of classes with unique indexes wait for the end of the transaction.
    bool isFull() const {
        return !holdsUnique && used >= (connection.prefersRuns() ? 32768U : 4096U);
    }

    /// Throws SqlFailure, with the object named, at the first write that fails.
    /// `goesOn` tells that the transaction may have more to write.
    void flush(bool goesOn);

    /// Forgets what waits, and what the transaction wrote before.
    void clear();

    /// The model goes, and with it its associations.
    void forgetModel() {
        clear();
        linking.clear();
    }

private:
    void forget();

    enum class Kind : std::uint8_t { Nothing, Insert, Update, Remove, Link, Unlink };

    // What a link call does to a reference.
    enum class Change : std::uint8_t { Make, Dissolve, Empty };

    // One operation. Slots are used again, so that their lists keep their room.
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

    Operation& add(Kind kind, Instance* instance);
    Operation* find(const Instance* instance);
    ColumnSet& enterLinks(Operation& operation);
    static void enterColumn(Operation& operation, int column);
    void addColumns(Operation& operation, const ClassTable& table, Instance* instance);
    void setReference(Instance* owner, const String& role, Instance* partner, Change change,
                      bool elsewhere, bool raisedBefore);
    Operation& addRow(Instance* owner, bool elsewhere, bool raisedBefore);
    void enterLink(Operation& row, int column, Instance* partner, Change change);
    void takeFromOthers(Instance* owner, const String& role, Instance* partner,
                        Association* association);
    bool wasInserted(unsigned long id);
    static bool holds(Instance* owner, const String& role, const Instance* partner);

    // A row whose reference `role` leads to `partner`.
    struct StoredReference {
        Class* cls;
        unsigned long id;
        unsigned long partner;
    };

    void postAll();
    void emptyTaken();
    void dissolveApart();
    std::vector<StoredReference> readReferences(Class* holder, const String& role,
                                                const std::vector<std::int64_t>& partners);
    void emptyRows(Class* holder, Association* association, const String& role,
                   const std::vector<StoredReference>& found, std::size_t ticket);
    bool isForgotten(Instance* owner, int column);
    bool isWritten(const Instance* owner);
    void postEmptied(Class* holder, const String& role, const std::vector<std::int64_t>& ids,
                     bool raising, std::size_t ticket);
    void postRows();
    void sortByRow(std::vector<std::size_t>& order) const;
    bool isByRow(const std::vector<std::size_t>& order) const;
    bool precedes(std::size_t left, std::size_t right) const;
    void preferRuns(std::vector<std::size_t>& removals, std::vector<std::size_t>& updates);
    std::size_t countRuns(const std::vector<std::size_t>& order) const;
    void lockRows(std::vector<std::size_t> order);
    void setAside(const std::vector<std::size_t>& updates);
    void postInserts();
    void postMany(const std::size_t* run, std::size_t count);
    void noteInserted(const Instance* instance);
    void postDissolvers();
    void postDissolver(const Referrer& referrer, const std::vector<std::size_t>& removed);
    void postLinks();
    void post(std::size_t position);
    void postInsert(std::size_t position);
    void postUpdate(std::size_t position);
    void postRemove(std::size_t position);
    void postLink(std::size_t position);
    static std::pair<const Instance*, const Instance*> endsOf(const Operation& row);
    void postInOrder(const std::vector<std::size_t>& order);
    std::vector<std::size_t> all(bool (*isWanted)(Kind)) const;
    void sortIntoRuns(std::vector<std::size_t>& order);
    void keepLastOfPairs(std::vector<std::size_t>& order) const;
    void checkPartners();
    void checkPartners(Class* cls, const std::vector<std::int64_t>& ids);
    [[noreturn]] void failOnPartner(std::int64_t id);
    [[noreturn]] void fail(const PostFailure& failure);
    std::string faultOfVersion(const Operation& operation);
    std::string explainVersion(const Operation& operation);
    static bool isRow(Kind kind) {
        return kind == Kind::Insert || kind == Kind::Update || kind == Kind::Remove;
    }
    static bool isInsertion(Kind kind) { return kind == Kind::Insert; }
    static bool isUpdate(Kind kind) { return kind == Kind::Update; }
    static bool isRemoval(Kind kind) { return kind == Kind::Remove; }
    static bool isLink(Kind kind) { return kind == Kind::Link || kind == Kind::Unlink; }
    static const char* attemptOf(Kind kind);
    Statement& kept(const std::string& text);
    static std::string nameOf(const Instance* instance);

    Tables& tables;
    const Dialect& dialect;
    Connection& connection;
    FieldBinder binder;
    SpareValues spares;
    std::vector<Operation> operations;
    std::size_t used = 0;
    InstanceMap positions;                // of row operations
    std::vector<unsigned long> inserted;  // flushed in this transaction
    bool insertedIsSorted = true;
    bool holdsUnique = false;          // rows of classes with unique indexes
    const Class* lastClass = nullptr;  // whose row was queued last

    // Of one-to-one links in the queue: who refers to the partner by the role in
    // the end, and whether somebody may be stored who did so before.
    using Held = std::tuple<Association*, bool, const Instance*>;
    struct Holder {
        Instance* instance = nullptr;
        bool mayHaveForerunner = false;
    };
    std::map<Held, Holder> holders;

    // Further partners that one reference loses where it leads to them.
    struct Dissolved {
        std::size_t position;
        int column;
        std::int64_t partner;
    };
    std::vector<Dissolved> dissolved;

    // Their versions were raised by a flush before the last of this transaction,
    // and not by an action of their own.
    std::unordered_set<const Instance*> raisedEarlier;
    EmptiedListener* listener = nullptr;
    std::unordered_map<std::string, std::unique_ptr<Statement>> statements;
    std::map<std::pair<const Association*, Kind>, std::unique_ptr<Statement>> linking;
    FieldSet changed;
};

}  // namespace Kes::sql
