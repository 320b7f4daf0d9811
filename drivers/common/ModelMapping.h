// Metadata mapping: the table mappings of all classes of a model, made as they
// are needed.

#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "drivers/common/TableMapping.h"

namespace Kes::sql {

/// A column, of a class's or a link table, that refers to objects of a class.
struct Referrer {
    std::string table;   // quoted
    std::string column;  // quoted
    Association* association;
    const String* role;  // the column is named by it
    Class* holder;       // whose table it is; null for a link table, where rows go

    /// Up to the list of the ids of objects that are removed.
    std::string dissolver;

    /// The library does not name the links that a removal dissolves here.
    bool isUnnamed() const;
};

class ModelMapping {
public:
    ModelMapping(const Dialect& itsDialect, StatementCache& itsStatements)
        : dialect(itsDialect),
          statements(itsStatements) {}

    TableMapping& of(Class* cls);

    /// Whatever refers to objects of the class.
    const std::vector<Referrer>& referrers(const Class* cls);

    /// What was learnt of a model's classes ends with the model.
    void forget();

    static bool isManyToMany(const Association* association);

    /// The concrete classes at an end, with sub classes.
    static std::vector<Class*> concreteClasses(const Class* end);

private:
    std::vector<Referrer> referrersOf(const Class* cls) const;
    Referrer linkTable(Association* association, const String& role) const;
    Referrer referenceOf(Class* holder, Association* association, const String& role) const;

    const Dialect& dialect;
    StatementCache& statements;
    std::unordered_map<const Class*, std::unique_ptr<TableMapping>> tables;
    TableMapping* last = nullptr;
    std::unordered_map<const Class*, std::vector<Referrer>> referring;
};

}  // namespace Kes::sql
