// The table of fields of a described class.
//
// The table has what a handle operation would say: names, kinds and places of
// the members, those of described super classes first. It is made once for each
// class of a model and walked by functions that are compiled once.

#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/FieldCodec.h>
#include <kes/Instance.h>
#include <kes/String.h>

namespace Kes {

class ClassRecord;

struct DescribedField {
    String name;
    String flag;  // of an optional field: the name of its mark
    const FieldCodec* codec;
    std::size_t offset;  // from the object's Instance

    void* of(Instance* instance) const { return reinterpret_cast<std::byte*>(instance) + offset; }
};

struct DescribedReference {
    String association;
    String role;
    std::size_t offset;
    bool isMany;
    Association::ConsistencyRule rule;

    void* of(Instance* instance) const { return reinterpret_cast<std::byte*>(instance) + offset; }
};

class DescribedClass final : public Class {
public:
    /// The record is borrowed for this call.
    DescribedClass(const ClassRecord& record, int classVersion, Model* owner);

    const std::vector<DescribedField>& getFields() const { return fields; }
    const std::vector<DescribedReference>& getReferences() const { return references; }

    /// Null for another kind of class.
    static const DescribedClass* from(const Class* cls);

    /// Null for an object of another kind of class, or of none.
    static const DescribedClass* of(const Instance* instance);

private:
    void take(const ClassRecord& record);

    std::vector<DescribedField> fields;
    std::vector<DescribedReference> references;
};

/// Shows one field to the handler. Raises Error (InvalidValue) when the handler
/// has put something there that the member cannot hold.
void reportField(Handler& handler, const DescribedField& field, Instance* instance);

/// Shows a value that is no optional, and lies in no object.
void reportValue(Handler& handler, const String& name, const FieldCodec& codec, void* value);

/// The same with a handler that puts a stored value of some object's field there.
/// Raises Error (InvalidValue) when the variable cannot hold it.
void loadValue(Handler& handler, const Class* cls, const String& name, const FieldCodec& codec,
               void* value);

/// Why the value of a member cannot be stored; "" when it can.
std::string reasonToRefuse(const FieldCodec& codec, void* member);

/// Raises Error (InvalidValue) for the first field that cannot be stored.
void checkFields(Instance* instance);

/// "the field due of the Ticket object 5"
std::string describeField(const Instance* instance, const std::string& field);

/// A text without NUL bytes, in UTF-8.
bool isStorableText(const char* text, std::size_t size);

}  // namespace Kes
