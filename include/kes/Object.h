// The base class of described objects.

#pragma once

#include <type_traits>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Instance.h>
#include <kes/Many.h>
#include <kes/One.h>
#include <kes/Ref.h>

namespace Kes {

/// Marks the classes whose fields are described by a table.
class Described {};

/// Makes an object of a described class: its Class has to be known before its
/// constructor runs, and its references are told whose they are after it.
class KES_EXPORT ObjectConstruction {
public:
    explicit ObjectConstruction(Class* cls);
    ObjectConstruction(const ObjectConstruction&) = delete;
    ObjectConstruction& operator=(const ObjectConstruction&) = delete;
    ~ObjectConstruction();

    /// Tells the references of the object whose they are, and returns it.
    static Instance* complete(Instance* fresh);

    /// Of the object whose construction begins; null for one that belongs to no
    /// database, such as a local variable.
    static Class* takeClass();

private:
    Class* outer;
};

/// Shows the members of a described object to the handler, as its class's table
/// says. The reserved fields, and those of a hand-written base, are the caller's.
KES_EXPORT void reportDescribedFields(Handler* handler, Instance* instance);

/// The root of described classes.
class KES_EXPORT ObjectBase : public Instance, public Described {
public:
    ObjectBase(const ObjectBase&) = delete;
    ObjectBase& operator=(const ObjectBase&) = delete;
    void handle(Handler* handler) final;

protected:
    ObjectBase() : Instance(ObjectConstruction::takeClass()) {}
    ~ObjectBase() override;
};

/// The same over a class with a handle operation of its own.
template <class Base>
class DescribedOver : public Base, public Described {
    static_assert(std::is_base_of_v<Instance, Base>,
                  "the second argument of Kes::Object is a persistent class: one with a "
                  "description, or one derived from Kes::Instance");

public:
    DescribedOver(const DescribedOver&) = delete;
    DescribedOver& operator=(const DescribedOver&) = delete;
    void handle(Handler* handler) final {
        Base::handle(handler);
        reportDescribedFields(handler, this);
    }

protected:
    DescribedOver() : Base(ObjectConstruction::takeClass()) {}
};

/// The base of a persistent class `T` that describes its members:
///
///     struct Person : Kes::Object<Person> {
///         std::string name;
///         Kes::Many<Person> children;
///         static void describe(Kes::Description<Person>& d);
///     };
///
/// A class derives from another persistent class `Base` by
/// `struct Employee : Kes::Object<Employee, Person>`. `T` can be made without
/// arguments. Objects are made by Transaction::make, and cannot be copied; they
/// are constant until Transaction::edit. One that is made otherwise belongs to
/// no database, and its references work in none.
template <class T, class Base = ObjectBase>
class Object
    : public std::conditional_t<std::is_base_of_v<Described, Base>, Base, DescribedOver<Base>> {
public:
    using DescribedClass = T;
    using DescribedBase = Base;

protected:
    Object() = default;
};

}  // namespace Kes
