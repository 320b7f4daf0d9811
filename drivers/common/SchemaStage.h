// Schema changes where a schema statement commits by itself.
//
// Such a database cannot roll an upgrade back. New tables are made and filled
// under other names instead, beside the old ones, and take their names all at
// once in the end. What was left by an upgrade that was cut off is dropped when
// the next one begins.

#pragma once

#include <string>

namespace Kes::sql {

class SchemaStage {
public:
    virtual ~SchemaStage() = default;

    /// Waits for other upgrades and clears away what was left by one that was
    /// cut off. Ends the open transaction.
    virtual void begin() = 0;

    /// Keeps the rows of a table as they are until the end. The table is read
    /// after that.
    virtual void freeze(const std::string& table) = 0;

    /// The quoted name of a table that is to become `table`.
    virtual std::string place(const std::string& table) = 0;

    /// Gives all places their names, or throws SqlFailure and gives none.
    virtual void swap() = 0;

    /// Ends what begin() began, after a swap or without one.
    virtual void end() = 0;
};

}  // namespace Kes::sql
