// Classes whose fields and references a check makes up.

#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Instance.h>
#include <kes/Many.h>
#include <kes/Model.h>
#include <kes/One.h>
#include <kes/Pointer.h>
#include <kes/Selection.h>

#include "Check.h"
#include "Value.h"

namespace Kes::check {

/// A field, or a reference through an association.
struct Member {
    enum What { Field, One, Many };

    What what;
    String name;  ///< of the field or the role
    Kind kind = Kind::Int;
    int length = 0;
    Value initial;
    String association;
    Association::ConsistencyRule rule = Association::Unlink;
};

/// The declaration of a class. Names of super classes come first in a model.
struct Shape {
    explicit Shape(std::string called, std::string above = "")
        : name(std::move(called)),
          super(std::move(above)) {}

    Shape& field(const std::string& fieldName, Kind kind);
    Shape& field(const std::string& fieldName, Kind kind, const Value& initial);
    Shape& one(const std::string& association, const std::string& role,
               Association::ConsistencyRule rule = Association::Unlink);
    Shape& many(const std::string& association, const std::string& role);
    Shape& index(const std::string& fields, bool isUnique = false);
    Shape& withVersion(int schemaVersion);
    Shape& asAbstract(bool isAbstractNow = true);
    Shape& asShared(bool isSharedNow = true);

    std::string name;
    std::string super;
    int version = 0;  ///< 0 for the model's
    bool isAbstract = false;
    bool isShared = false;  ///< with other models of the database
    std::vector<Member> own;
    std::vector<Index> indexes;
    std::vector<const Member*> all;  ///< inherited ones first; set by the model
};

/// An object of any shape.
class Object final : public Instance {
public:
    Object(Class* c, const Shape& itsShape);
    void handle(Handler* h) override;

    Value& operator[](const std::string& fieldName);

    /// The partners in a role, loaded when they are not fetched; at most one
    /// for a one-reference.
    std::vector<Object*> partners(const std::string& role);
    Object* partner(const std::string& role);

    /// Links, or dissolves the link, from this object's side.
    void link(const std::string& role, Object* other);
    void unlink(const std::string& role, Object* other);

    /// Fetches the reference anew.
    void reload(const std::string& role);

    /// Its handle throws from now on after so many reports, once; 0 for never.
    void throwBehind(int reports) { patience = reports; }

private:
    std::size_t position(const std::string& memberName, bool isField) const;

    void mayThrow();

    const Shape& shape;
    int patience = 0;  // reports until handle throws
    std::vector<Value> values;
    std::vector<std::unique_ptr<One<Object>>> ones;
    std::vector<std::unique_ptr<Many<Object>>> manies;
};

/// A session with the database under test.
class CheckModel final : public Model {
public:
    /// Exact leaves names as they are: others get Settings::tag appended.
    enum Naming { Tagged, Exact };

    CheckModel(const Check& check, const std::string& modelName, std::vector<Shape> declared,
               int schemaVersion = 1, Naming naming = Tagged, int capacity = 100000);

    void open();

    /// By the name in the shape. Never null.
    Class* operator[](const std::string& className) const;

    Object* make(const std::string& className);

    /// The stored or cached object; null when there is none.
    Object* find(const std::string& className, unsigned long id);

    /// As find; ends the check when there is none.
    Object* get(const std::string& className, unsigned long id);
    using Model::get;
    std::string tagged(const std::string& text) const;

    const Shape& shapeOf(const Class* cls) const;

protected:
    void declareModel() override;

private:
    static Instance* make(Class* cls);

    const Settings& settings;
    std::vector<Shape> shapes;
    Naming namesAre;
};

/// The tables that the checks so far have left in the database, by class.
const std::set<std::string>& classesLeft();

/// All that a selection delivers, in its order.
std::vector<Pointer<Object>> allOf(Selection& selection);

/// The ids of what a selection delivers, in its order.
std::vector<unsigned long> idsOf(Selection& selection);

/// Starts a transaction, runs the work and commits.
template <class Work>
void transact(Model& model, Work work) {
    model.startTransaction();
    work();
    model.commit();
}

}  // namespace Kes::check
