// Table mapping of one class: concrete table inheritance, a table for each class
// that has objects, with all its fields, and a view where it has sub classes.
//
// The columns are learnt once from a dummy instance, in the order in which its
// handle operation reports them; from then on the k-th report is the k-th
// column, and no name is looked up per row. Statements are prepared once for
// each shape and kept.

#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/String.h>

#include "drivers/common/Dialect.h"
#include "drivers/common/StatementCache.h"

namespace Kes::sql {

struct Column {
    std::string name;
    FieldKind kind;
    const Association* association = nullptr;  // of references
};

/// Prepared statements of one text that no cursor uses at the moment. A cursor
/// keeps the pool that its own comes from.
using StatementPool = std::vector<std::unique_ptr<Statement>>;
using SharedPool = std::shared_ptr<StatementPool>;

/// Columns by position, as a set of bits.
using ColumnSet = std::vector<std::uint64_t>;

class TableMapping {
public:
    static constexpr int IdColumn = 0;
    static constexpr int VersionColumn = 1;

    TableMapping(Class* itsClass, const Dialect& itsDialect, StatementCache& itsStatements);
    TableMapping(const TableMapping&) = delete;
    TableMapping& operator=(const TableMapping&) = delete;

    Class* getClass() const { return cls; }
    std::string name() const { return static_cast<const char*>(cls->getName()); }
    const std::vector<Column>& columns() const { return all; }

    /// -1 when the class has no such column.
    int find(const std::string& column) const;

    /// The column of the n-th plain field.
    int columnOfField(std::size_t field) const { return plain[field]; }
    std::size_t fieldCount() const { return plain.size(); }

    /// Quoted names. The source of a query is the view where sub classes exist.
    const std::string& table() const { return quotedTable; }
    std::string source() const;
    std::string column(int position) const;

    /// All columns of the alias "t", separated by commas.
    const std::string& selectList() const { return columnList; }

    Statement& insert() { return insert(inserting, 1); }

    /// The same for insertedRows() rows, one after the other.
    Statement& insertMany() { return insert(insertingMany, insertedRows()); }
    std::size_t insertedRows() const { return dialect.insertedRows(all.size()); }
    Statement& remove();     // parameters: id, version
    Statement& versionOf();  // parameter: id
    Statement& lockRow();    // the same, and nobody else may change the row from then on

    /// What a lock needs beside that, with the same parameter; null for nothing.
    Statement* touchRow();
    const SharedPool& byId() { return idPool; }
    std::unique_ptr<Statement> takeById();

    /// Sets the columns of the set; the id and the old version follow. A column
    /// whose bit dissolvedBit() is set as well is emptied where it has the value.
    /// Borrowed until the next call, which may wait for posted writes.
    Statement& update(const ColumnSet& set);
    int dissolvedBit(int column) const { return static_cast<int>(all.size()) + column; }

    /// True when some of the columns are part of a unique index.
    bool changesUnique(const ColumnSet& set);
    bool hasUnique() { return !unique().empty(); }

    /// Those of the set that are part of a unique index and of a kind of which
    /// there are spare values; none when there are none.
    ColumnSet movableOf(const ColumnSet& set);

    /// `tail` is what follows the select list and the table. Of a query for few
    /// rows all are taken at once.
    SharedPool pool(const std::string& tail);
    std::unique_ptr<Statement> take(StatementPool& from, const std::string& tail, bool hasFew);

    static std::string viewName(const Class* cls);

private:
    class Learner;

    Statement& insert(Statement*& kept, std::size_t rows);
    std::string versionQuery() const;
    std::string updateOf(const ColumnSet& set) const;
    const std::vector<int>& unique();

    Class* cls;
    const Dialect& dialect;
    StatementCache& statements;
    std::vector<Column> all;
    std::vector<int> plain;
    std::unordered_map<std::string, int> positions;
    std::vector<int> uniqueColumns;
    bool knowsUnique = false;
    std::string quotedTable;
    std::string columnList;

    // The cache's; null until they are asked for.
    Statement* inserting = nullptr;
    Statement* insertingMany = nullptr;
    Statement* removing = nullptr;
    Statement* asking = nullptr;
    Statement* locking = nullptr;
    Statement* touching = nullptr;

    // Not the cache's, which keeps what it has: these are bounded.
    StatementShapes<std::map<ColumnSet, std::unique_ptr<Statement>>> updates;
    SharedPool idPool = std::make_shared<StatementPool>();
    std::unordered_map<std::string, SharedPool> pools;
};

}  // namespace Kes::sql
