// What descriptions have said, and the tables that are made of it.
//
// A schema is collected while the functions describe of its classes run. Faults
// are noted, and raised where a database is opened with the schema: a schema may
// be a static object, whose maker nobody catches. Once settled, it never changes
// and may serve sessions of several threads.

#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>
#include <typeindex>
#include <vector>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/FieldCodec.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

class SchemaRecord;

/// A stored member.
struct FieldRecord {
    std::string name;
    const FieldCodec* codec;
    std::size_t offset;  // from the object's Instance
    bool isUnique = false;
    bool isIndexed = false;
};

/// One end of a link: a member of type One or Many.
struct ReferenceRecord {
    std::string association;
    std::string role;
    std::size_t offset;  // from the object's Instance
    bool isMany;
    Association::ConsistencyRule rule;
};

/// A link as the class at one of its ends has described it.
struct LinkRecord {
    std::string name;
    std::size_t offset;
    bool isMany;
    std::string otherName;  // "" when it follows from the class
    std::type_index other;
    std::size_t otherOffset;
    bool isOtherMany;
    bool isCascading = false;
};

/// One class of a schema.
class ClassRecord {
public:
    ClassRecord(SchemaRecord& itsSchema, const std::type_info& itsType,
                const std::type_info& itsBase, Class::Factory itsFactory, bool described)
        : schema(itsSchema),
          type(itsType),
          base(itsBase),
          factory(itsFactory),
          isDescribed(described) {}

    SchemaRecord& schema;
    const std::type_index type;
    const std::type_index base;
    const Class::Factory factory;
    const bool isDescribed;
    std::string name;
    bool isAbstract = false;
    std::vector<FieldRecord> fields;
    std::vector<LinkRecord> links;

    // Filled by SchemaRecord::complete.
    const ClassRecord* super = nullptr;
    std::vector<ReferenceRecord> references;
};

class SchemaRecord {
public:
    SchemaRecord(std::string_view itsName, int itsVersion) : name(itsName), version(itsVersion) {}

    ClassRecord& add(const std::type_info& type, const std::type_info& base, Class::Factory factory,
                     bool isDescribed, std::string_view className);

    /// Joins the ends of links and looks for faults. Raises Error (Declaration).
    void complete();

    const std::string& getName() const { return name; }
    int getVersion() const { return version; }
    const std::deque<ClassRecord>& getClasses() const { return classes; }

private:
    [[noreturn]] void fail(const ClassRecord* cls, const std::string& field,
                           const std::string& fault) const;
    ClassRecord* find(std::type_index type);
    void join();
    void joinOnce();
    void joinLink(ClassRecord& cls, LinkRecord& link);
    void findSuper(ClassRecord& cls);
    void checkName(const ClassRecord& cls) const;
    void checkMembers(const ClassRecord& cls) const;

    const std::string name;
    const int version;
    std::deque<ClassRecord> classes;  // never moved
    std::once_flag settled;
    bool isSettled = false;
};

/// The name of a C++ type without its namespaces.
std::string nameOf(std::type_index type);

/// The field that tells whether an optional one has a value: an int, 0 or 1.
std::string flagOf(const std::string& field);

}  // namespace Kes
