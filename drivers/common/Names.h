// The names that a model needs in a database.
//
// Tables, views, link tables and indexes share one space of names. All of them
// are known before anything is made, so that a name that the database cannot
// hold, or that two owners want, is refused with the owners named.

#pragma once

#include <map>
#include <string>
#include <vector>

#include <kes/Model.h>

#include "drivers/common/ModelMapping.h"

namespace Kes::sql {

/// One index of one table.
struct IndexPlan {
    std::string name;
    std::vector<std::string> columns;
    bool unique;
};

/// A class or an association of another model in the database.
struct OtherOwner {
    std::string name;
    std::string model;
};

class Names {
public:
    explicit Names(const Dialect& itsDialect) : dialect(itsDialect) {}

    /// Throws SqlFailure when some name of the model is not possible.
    void check(const Model& model, ModelMapping& tables);

    /// To be called behind check. Throws SqlFailure when the database takes a name of
    /// the model for one that belongs to another model. Classes and associations
    /// of the very same name are let pass: they may be shared.
    void checkOthers(const Model& model, const std::vector<OtherOwner>& others) const;

    /// The indexes of a class's table: one per one-reference, then the declared
    /// ones, inherited ones included. Throws SqlFailure for a list that does
    /// not fit the class.
    static std::vector<IndexPlan> indexesOf(const TableMapping& table);

    /// The name, which no class or association can have, of the index on the
    /// second column of a link table.
    std::string secondIndexOf(const std::string& association) const;

    /// What the library's own names begin with.
    static constexpr const char* Own = "kes_";

private:
    void checkOwner(const std::string& name, const std::string& owner) const;
    void claim(const std::string& name, const std::string& owner);
    void checkColumns(const TableMapping& table);
    void checkAssociation(const Association& association);

    const Dialect& dialect;
    std::map<std::string, std::pair<std::string, std::string>> owners;  // by folded name
};

}  // namespace Kes::sql
