// Association table mapping, writing: what links change beside the rows of the
// queue.
//
// A one-to-one link takes its partners from whoever is stored to have them, and a
// removal empties the references that lead to the removed row. Those rows are
// named by no call. Their versions are raised in the database, and the library,
// which is told of them, raises them in memory: whoever had the stored version
// has it afterwards. Many-to-many links stand in tables of their own.

#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <kes/EmptiedReferences.h>

#include "drivers/common/StatementCache.h"
#include "drivers/common/WriteQueue.h"

namespace Kes::sql {

class LinkWriter {
public:
    LinkWriter(WriteQueue& itsQueue, ModelMapping& itsTables, StatementCache& itsStatements,
               const Dialect& itsDialect, Connection& itsConnection)
        : queue(itsQueue),
          tables(itsTables),
          statements(itsStatements),
          dialect(itsDialect),
          connection(itsConnection) {}

    /// Borrowed; null for nobody. It hears of references that are emptied in rows
    /// that no call names.
    void tellEmptiedTo(EmptiedListener* itsListener) { listener = itsListener; }

    // The passes, in the order of a flush; the rows are written after the first
    // two. Each throws SqlFailure, mostly a PostFailure.
    void emptyTaken();
    void dissolveApart();
    void postDissolvers(bool goesOn);
    void postLinks();

    /// The model goes, and with it its associations and their statements.
    void forgetModel() { linking.clear(); }

private:
    // A row whose reference `role` leads to `partner`.
    struct StoredReference {
        Class* cls;
        unsigned long id;
        unsigned long partner;
    };

    std::vector<StoredReference> readReferences(Class* holder, const String& role,
                                                const std::vector<std::int64_t>& partners);
    void emptyRows(Class* holder, Association* association, const String& role,
                   const std::vector<StoredReference>& found, std::size_t ticket);
    void postEmptied(Class* holder, const String& role, const std::vector<std::int64_t>& ids,
                     bool raising, std::size_t ticket);
    void postDissolver(const Referrer& referrer, const std::vector<std::size_t>& removed,
                       bool goesOn);
    void postLink(std::size_t position);
    static std::pair<const Instance*, const Instance*> endsOf(const WriteQueue::Operation& row);
    void keepLastOfPairs(std::vector<std::size_t>& order) const;

    WriteQueue& queue;
    ModelMapping& tables;
    StatementCache& statements;
    const Dialect& dialect;
    Connection& connection;
    EmptiedListener* listener = nullptr;
    std::map<std::pair<const Association*, WriteQueue::Kind>, Statement*> linking;  // the cache's
};

}  // namespace Kes::sql
