// What a class says of its members, and the schema that classes make together.

#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <typeinfo>

#include <kes/Class.h>
#include <kes/Export.h>
#include <kes/FieldCodec.h>
#include <kes/Forward.h>
#include <kes/Object.h>

namespace Kes {

class ClassRecord;
class SchemaRecord;

/// Where a member lies, counted from its object's Instance.
struct MemberPlace {
    const std::type_info& owner;  // the class that was asked for the member
    std::size_t offset;
};

/// An object that is asked for the places of its members; it belongs to no
/// database.
template <class T>
T& probeOf() {
    static T probe;
    return probe;
}

/// The place of a member, as an object of `T` has it.
template <class T, class M, class C>
MemberPlace placeOf(M C::*member) {
    const T& probe = probeOf<T>();
    const Instance& start = probe;
    return {typeid(T), static_cast<std::size_t>(reinterpret_cast<const char*>(&(probe.*member)) -
                                                reinterpret_cast<const char*>(&start))};
}

template <class T>
inline constexpr bool IsReference = false;
template <class T>
inline constexpr bool IsReference<One<T>> = true;
template <class T>
inline constexpr bool IsReference<Many<T>> = true;
template <class T>
inline constexpr bool IsMany = false;
template <class T>
inline constexpr bool IsMany<Many<T>> = true;

template <class R>
struct PartnerOf;
template <class T>
struct PartnerOf<One<T>> {
    using type = T;
};
template <class T>
struct PartnerOf<Many<T>> {
    using type = T;
};

/// A field that is being described.
class KES_EXPORT FieldDescription {
public:
    FieldDescription(ClassRecord& itsClass, std::size_t itsPosition)
        : cls(itsClass),
          position(itsPosition) {}

    /// No two objects of a concrete class have the same value.
    FieldDescription& unique();

    /// Queries for the field are worth an index.
    FieldDescription& indexed();

private:
    ClassRecord& cls;
    std::size_t position;
};

/// The same of an optional one. Empty values would count as equal, so a unique
/// index is not for it.
class KES_EXPORT OptionalFieldDescription {
public:
    explicit OptionalFieldDescription(FieldDescription itsField) : field(itsField) {}

    /// Queries for the field are worth an index, over its mark and its value.
    OptionalFieldDescription& indexed() {
        field.indexed();
        return *this;
    }

private:
    FieldDescription field;
};

/// A link that is being described.
class KES_EXPORT LinkDescription {
public:
    LinkDescription(ClassRecord& itsClass, std::size_t itsPosition)
        : cls(itsClass),
          position(itsPosition) {}

protected:
    void setCascading();

private:
    ClassRecord& cls;
    std::size_t position;
};

/// A link of one object to many.
class KES_EXPORT CascadingLinkDescription : public LinkDescription {
public:
    using LinkDescription::LinkDescription;

    /// The removal of the one removes the many as well. Without it they stay,
    /// with no partner.
    CascadingLinkDescription& cascades() {
        setCascading();
        return *this;
    }
};

/// What Description does for every class alike.
class KES_EXPORT DescriptionBase {
public:
    explicit DescriptionBase(ClassRecord& itsRecord) : record(itsRecord) {}
    DescriptionBase(const DescriptionBase&) = delete;
    DescriptionBase& operator=(const DescriptionBase&) = delete;

    /// The name of the class in the database, where it is not to be the one that
    /// it has in the program, without its namespaces.
    void name(std::string_view className);

    /// There are no objects of the class but those of its sub classes.
    void abstract();

protected:
    FieldDescription addField(std::string_view name, const FieldCodec& codec, MemberPlace place);
    std::size_t addLink(std::string_view name, MemberPlace place, bool isMany,
                        std::string_view otherName, MemberPlace otherPlace, bool isOtherMany);
    ClassRecord& getRecord() { return record; }

private:
    ClassRecord& record;
};

/// Takes down the members of class `T`, for T::describe to fill.
template <class T>
class Description final : public DescriptionBase {
public:
    using DescriptionBase::DescriptionBase;

    /// A member that is stored under the name.
    template <class M, class C>
    auto field(std::string_view name, M C::*member) {
        if constexpr (!HasItself<C>) {
            static_assert(HasItself<C>,
                          "a class describes the members that it has itself, and "
                          "this is one of another class");
        } else if constexpr (IsReference<M>) {
            static_assert(!IsReference<M>,
                          "a Kes::One or Kes::Many is described by one or many, with both ends");
        } else if constexpr (!IsStorable<M>) {
            static_assert(IsStorable<M>,
                          "Kes cannot store members of this type: use another "
                          "one, or specialise Kes::FieldTraits for it");
        } else {
            const FieldDescription described =
                addField(name, FieldCodecOf<M>::value, placeOf<T>(member));
            if constexpr (IsOptional<M>)
                return OptionalFieldDescription(described);
            else
                return described;
        }
    }

    /// A link, by its member in this class and the one at its other end. Either
    /// class describes it, and not both. The other end's name is that of this
    /// class, with a small first letter, and for a Many with an "s" at the end,
    /// unless it is given.
    template <class M, class C, class O, class D>
    auto one(std::string_view name, M C::*member, O D::*other) {
        constexpr bool isOne = IsReference<M> && !IsMany<M>;
        static_assert(isOne, "one describes a member of type Kes::One");
        if constexpr (isOne)
            return link<M, C, O, D>(name, member, std::string_view(), other);
    }
    template <class M, class C, class O, class D>
    auto one(std::string_view name, M C::*member, std::string_view otherName, O D::*other) {
        constexpr bool isOne = IsReference<M> && !IsMany<M>;
        static_assert(isOne, "one describes a member of type Kes::One");
        if constexpr (isOne)
            return link<M, C, O, D>(name, member, otherName, other);
    }
    template <class M, class C, class O, class D>
    auto many(std::string_view name, M C::*member, O D::*other) {
        static_assert(IsMany<M>, "many describes a member of type Kes::Many");
        if constexpr (IsMany<M>)
            return link<M, C, O, D>(name, member, std::string_view(), other);
    }
    template <class M, class C, class O, class D>
    auto many(std::string_view name, M C::*member, std::string_view otherName, O D::*other) {
        static_assert(IsMany<M>, "many describes a member of type Kes::Many");
        if constexpr (IsMany<M>)
            return link<M, C, O, D>(name, member, otherName, other);
    }

private:
    // Of a base that is no persistent class the members are its own.
    template <class C>
    static constexpr bool HasItself = std::is_same_v<C, T> ||
                                      (std::is_base_of_v<C, T> && !std::is_base_of_v<Instance, C>);

    template <class M, class C, class O, class D>
    auto link(std::string_view name, M C::*member, std::string_view otherName, O D::*other) {
        if constexpr (!std::is_same_v<C, T>) {
            static_assert(std::is_same_v<C, T>,
                          "a class describes the links that it has itself, "
                          "and this is one of another class");
        } else if constexpr (!IsReference<O>) {
            static_assert(IsReference<O>, "the other end of a link is a Kes::One or a Kes::Many");
        } else {
            constexpr bool there = std::is_same_v<typename PartnerOf<M>::type, D>;
            constexpr bool back = std::is_same_v<typename PartnerOf<O>::type, T>;
            static_assert(there,
                          "the other end of a link is a member of the class that this end "
                          "refers to");
            static_assert(!there || back,
                          "the other end of a link refers to another class than this one");
            if constexpr (there && back) {
                const std::size_t position = addLink(name, placeOf<T>(member), IsMany<M>, otherName,
                                                     placeOf<D>(other), IsMany<O>);
                if constexpr (IsMany<M> != IsMany<O>)
                    return CascadingLinkDescription(getRecord(), position);
                else
                    return LinkDescription(getRecord(), position);
            }
        }
    }
};

/// The classes that are stored in one database. A value: copies share it. Made
/// by schema.
class KES_EXPORT Schema {
public:
    /// `version` is above 0; see the guide for when it has to rise.
    Schema(std::string_view name, int version);

    /// What schema does for each of its classes.
    template <class T>
    void add() {
        if constexpr (!IsDescribed<T>) {
            static_assert(IsDescribed<T>,
                          "the classes of a schema derive from Kes::Object; those "
                          "with a handle operation are for Schema::with");
        } else {
            constexpr bool isItself = std::is_same_v<typename T::DescribedClass, T>;
            constexpr bool describes = requires(Description<T> & d) {
                T::describe(d);
            };
            constexpr bool isMade = std::is_default_constructible_v<T>;
            static_assert(isItself || !describes,
                          "a class T derives from Kes::Object<T>, or from Kes::Object<T, Base>, "
                          "with itself as the first argument");
            static_assert(describes,
                          "a described class T has: static void describe(Kes::Description<T>& d)");
            static_assert(isMade, "Kes makes objects of a described class without arguments");
            if constexpr (isItself && describes && isMade) {
                ClassRecord& added =
                    addDescribed(typeid(T), typeid(typename T::DescribedBase), &construct<T>);
                Description<T> description(added);
                T::describe(description);
            }
        }
    }

    /// Adds a class with a handle operation of its own and a constructor that
    /// takes its Class, by its name in the database. `Base`, where it is given,
    /// is its super class, which is in the schema as well.
    template <class T, class Base = Instance>
    Schema& with(std::string_view name) {
        static_assert(!IsDescribed<T>, "a described class is an argument of Kes::schema");
        static_assert(std::is_base_of_v<Base, T> && std::is_base_of_v<Instance, Base>,
                      "a class for Schema::with derives from Kes::Instance, and from the super "
                      "class that is named with it");
        if constexpr (!IsDescribed<T>)
            addPlain(name, typeid(T), typeid(Base),
                     [](Class* cls) -> Instance* { return new T(cls); });
        return *this;
    }

private:
    friend class Database;

    template <class T>
    static Instance* construct(Class* cls) {
        const ObjectConstruction now(cls);
        return ObjectConstruction::complete(new T);
    }

    ClassRecord& addDescribed(const std::type_info& type, const std::type_info& base,
                              Class::Factory factory);
    void addPlain(std::string_view name, const std::type_info& type, const std::type_info& base,
                  Class::Factory factory);

    std::shared_ptr<SchemaRecord> record;
};

/// The schema `name` of the described classes, in its version:
/// `Kes::schema<Project, Ticket>("tracker", 3)`. What the descriptions have
/// wrong is raised where a Database is opened with it.
template <class... Classes>
Schema schema(std::string_view name, int version) {
    Schema made(name, version);
    (made.add<Classes>(), ...);
    return made;
}

}  // namespace Kes
