// What databases disagree about, with standard SQL as the default.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace Kes::sql {

enum class FieldKind {
    ULong,
    Long,
    Text,
    Int,
    UInt,
    Bool,
    Float,
    Double,
    Timestamp,
    Blob,
    Reference  // a one-reference: the partner's object id, or NULL
};

/// An index as statements show it.
struct IndexText {
    std::string name;  // quoted
    std::string columns;
    bool unique;
};

class Dialect {
public:
    virtual ~Dialect() = default;

    /// The driver's name, as its messages begin.
    virtual std::string name() const = 0;
    virtual std::string quote(const std::string& identifier) const;
    virtual std::string typeOf(FieldKind kind) const;

    /// NULL, where a column of another part of a union has the type.
    virtual std::string nullOf(FieldKind) const { return "NULL"; }
    virtual std::string idType() const { return "BIGINT NOT NULL PRIMARY KEY"; }

    /// A text column that can be part of a primary key.
    virtual std::string keyTextType() const { return "TEXT NOT NULL"; }

    /// What follows the last column of a class's table; a column that it adds
    /// must be none that queries and inserts without a list see.
    virtual std::string hiddenColumns() const { return ""; }

    /// What follows the column list of a link table.
    virtual std::string linkTableOptions() const { return ""; }

    /// Inserts a row that may be there already; `rest` is the table, the
    /// columns and the values.
    virtual std::string insertOrKeep(const std::string& rest) const;

    /// Inserts rows; what follows is the table, the columns and the values. Of
    /// several rows those before one that is refused may stay.
    virtual std::string insertRows() const { return "INSERT INTO "; }

    /// How many rows of so many columns one statement inserts at best.
    virtual std::size_t insertedRows(std::size_t) const { return 1; }

    /// The statements that make the place where object ids come from, in a
    /// database that has it or has it not.
    virtual std::vector<std::string> idStore() const;

    /// Follows a query for the version of one row, to keep others from changing
    /// it before this transaction ends.
    virtual std::string rowLock() const { return ""; }

    /// Follows a query for ids, to keep others from removing the rows.
    virtual std::string sharedLock() const { return ""; }

    /// Changes rows, up to the WHERE, so that no other transaction that depends
    /// on them commits too. Empty where row locks see to that.
    virtual std::string touch(const std::string&) const { return ""; }

    /// The same for rows that links are made to.
    virtual std::string touchPartners(const std::string& quotedTable) const {
        return touch(quotedTable);
    }

    /// A column as the definition of an index names it.
    virtual std::string indexed(const std::string& quotedColumn, FieldKind, bool) const {
        return quotedColumn;
    }

    /// The statements that make the indexes of a table.
    virtual std::vector<std::string> createIndexes(const std::string& quotedTable,
                                                   const std::vector<IndexText>& indexes) const;

    /// A case-sensitive match of two operands, with \ as the escape.
    virtual std::string like(const std::string& left, const std::string& right) const;

    /// A query for the columns of a table, names first and types second; its
    /// parameter is the table's name. No rows when there is no such table.
    virtual std::string columnsOf() const;
    virtual std::string createView(const std::string& quotedName) const;
    virtual std::string dropView(const std::string& quotedName) const;
    virtual std::string renameTable(const std::string& quotedFrom,
                                    const std::string& quotedTo) const;

    /// Why the database cannot hold the name of a table, column or index; empty
    /// when it can.
    virtual std::string nameFault(const std::string& identifier) const;

    /// The same for a column.
    virtual std::string columnFault(const std::string& identifier) const {
        return Dialect::nameFault(identifier);
    }

    /// Two names with the same folding are one to the database.
    virtual std::string fold(const std::string& identifier) const { return identifier; }
    virtual std::string foldColumn(const std::string& identifier) const { return fold(identifier); }
    virtual std::size_t mostColumns() const { return 1000; }

    /// How deep a condition may be: parentheses within each other, of which the first
    /// operand's cost one and others' three, and queries, which cost eight. Less than
    /// the database takes at most, whatever the query around the condition.
    virtual std::size_t mostDepth() const { return 500; }

    /// How many queries within a condition the database may join with those around them:
    /// for one that looks for the best order of all their tables. More are kept apart.
    virtual std::size_t mostJoined() const { return static_cast<std::size_t>(-1); }

    /// Why the database does not keep the finite number; empty when it does.
    virtual std::string reasonToRefuse(double) const { return ""; }

    /// A whole number divided by one, the rest cut off.
    virtual std::string quotient(const std::string& number, const std::string& divisor) const {
        return "(" + number + ") / " + divisor;
    }

    /// An expression as a number of 64 bits: sums have wider types in some databases.
    virtual std::string asLong(const std::string& expression) const { return expression; }

    /// A real number as one of 64 bits, to be added up.
    virtual std::string asDouble(const std::string& expression) const { return expression; }

    /// Whether a parameter may be a list of numbers, so that one statement and one
    /// plan of the server's serve lists of all lengths.
    virtual bool takesLists() const { return false; }

    /// Whether a column is one of the numbers of one parameter, or is none of them.
    virtual std::string inList(const std::string& column, bool isOneOf) const {
        return column + (isOneOf ? " IN (?)" : " NOT IN (?)");
    }

    /// Whether a column of object ids that many rows share is one of a list, which
    /// is what stands for one in parentheses: a parameter for each id, or one for all
    /// where the database takes lists.
    virtual std::string among(const std::string& column, const std::string& list) const {
        return column + " IN " + list;
    }
};

}  // namespace Kes::sql
