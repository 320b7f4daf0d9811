// The tables of all classes of a model, made as they are needed.

#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "drivers/common/ClassTable.h"

namespace Kes::sql {

/// A column, of a class's or a link table, that refers to objects of a class.
struct Referrer {
    std::string table;   // quoted
    std::string column;  // quoted
    bool isLink;         // a link table: rows go; otherwise the column is emptied
};

class Tables {
public:
    Tables(const Dialect& itsDialect, Connection& itsConnection)
        : dialect(itsDialect), connection(itsConnection) {}

    ClassTable& of(Class* cls);

    /// Statements that dissolve whatever refers to objects of the class, up to
    /// the list of the objects' ids.
    const std::vector<std::string>& dissolvers(const Class* cls);

    static bool isManyToMany(const Association* association);

    /// The concrete classes at an end, with sub classes.
    static std::vector<Class*> concreteClasses(const Class* end);

private:
    std::vector<Referrer> referrersOf(const Class* cls) const;

    const Dialect& dialect;
    Connection& connection;
    std::unordered_map<const Class*, std::unique_ptr<ClassTable>> tables;
    ClassTable* last = nullptr;
    std::unordered_map<const Class*, std::vector<std::string>> dissolving;
};

}  // namespace Kes::sql
