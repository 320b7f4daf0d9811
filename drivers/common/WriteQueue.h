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
// The version that a row must still have is the one before the first raise in
// the queue. The library raises the version of a link's first instance; where
// the link lies in the second instance's row, the queue raises that one, unless
// the commit writes the row by an action of its own.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

#include <kes/FieldSet.h>
#include <kes/Instance.h>

#include "drivers/common/FieldBinder.h"
#include "drivers/common/InstanceMap.h"
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

    bool isEmpty() const { return used == 0; }

    /// A short queue stays in the processor's caches; where a flush costs round
    /// trips by the kinds of its statements, a longer one is better.
    bool isFull() const { return used >= (connection.prefersRuns() ? 32768U : 4096U); }

    /// Throws SqlFailure, with the object named, at the first write that fails.
    void flush();

    /// Forgets what waits, and what the transaction wrote before.
    void clear();

private:
    enum class Kind : std::uint8_t { Nothing, Insert, Update, Remove, Link, Unlink, Empty };

    // One operation. Slots are used again, so that their lists keep their room.
    struct Operation {
        Kind kind = Kind::Nothing;
        bool raised = false;  // the queue has raised the version
        Instance* instance = nullptr;
        unsigned long expected = 0;  // the version that the row must have
        ColumnSet set;
        std::vector<LinkValue> links;

        // Of links in tables of their own, and of references to `other` that
        // everybody but `instance` loses: the role that `instance` plays.
        const Association* association = nullptr;
        const String* role = nullptr;
        Instance* other = nullptr;
    };

    Operation& add(Kind kind, Instance* instance);
    Operation* find(const Instance* instance);
    static ColumnSet& enterLinks(Operation& operation);
    static void enterColumn(Operation& operation, int column);
    void addColumns(Operation& operation, const ClassTable& table, Instance* instance);
    void setReference(Instance* owner, const String& role, Instance* partner, bool elsewhere,
                      bool raisedBefore);
    void emptyOthers(Instance* owner, const String& role, Instance* partner,
                     Association* association);
    void takeOver(Instance* owner, const String& role, Instance* partner,
                  const Association* association);
    bool wasInserted(unsigned long id);
    static bool holds(Instance* owner, const String& role, const Instance* partner);

    void postAll();
    void postEmpties();
    void postRows();
    void postRun(bool (*isWanted)(Kind));
    void postInserts();
    void postMany(const std::size_t* run, std::size_t count);
    void noteInserted(const Instance* instance);
    void postDissolvers();
    void postDissolver(const std::string& text, const std::vector<std::size_t>& removed);
    void postLinks();
    void post(std::size_t position);
    void postInsert(std::size_t position);
    void postUpdate(std::size_t position);
    void postRemove(std::size_t position);
    void postLink(std::size_t position);
    void postEmpty(std::size_t position);
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
    static bool isRow(Kind kind) {
        return kind == Kind::Insert || kind == Kind::Update || kind == Kind::Remove;
    }
    static bool isInsertion(Kind kind) { return kind == Kind::Insert; }
    static bool isUpdate(Kind kind) { return kind == Kind::Update; }
    static bool isRemoval(Kind kind) { return kind == Kind::Remove; }
    static bool isEmpty(Kind kind) { return kind == Kind::Empty; }
    static bool isLink(Kind kind) { return kind == Kind::Link || kind == Kind::Unlink; }
    static const char* attemptOf(Kind kind);
    Statement& kept(const std::string& text);
    static std::string nameOf(const Instance* instance);

    Tables& tables;
    const Dialect& dialect;
    Connection& connection;
    FieldBinder binder;
    std::vector<Operation> operations;
    std::size_t used = 0;
    InstanceMap positions;                // of row operations
    std::vector<unsigned long> inserted;  // flushed in this transaction
    bool insertedIsSorted = true;

    // Of one-to-one links in the queue: who refers to the partner by the role.
    using Held = std::tuple<const Association*, bool, const Instance*>;
    std::map<Held, Instance*> holders;
    bool hasEmpties = false;
    std::unordered_map<std::string, std::unique_ptr<Statement>> statements;
    std::map<std::pair<const Association*, Kind>, std::unique_ptr<Statement>> linking;
    FieldSet changed;
};

}  // namespace Kes::sql
