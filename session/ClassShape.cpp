#include "session/ClassShape.h"

#include <cstdint>
#include <memory>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Handler.h>
#include <kes/Index.h>
#include <kes/Instance.h>
#include <kes/Model.h>

#include "object/FieldWalk.h"
#include "object/Plurality.h"

namespace Kes {

namespace {

// The numbers are stored: a kind keeps its own for ever.
enum Stored : int {
    StoredULong = 1,
    StoredLong = 2,
    StoredText = 3,
    StoredInt = 4,
    StoredUInt = 5,
    StoredBool = 6,
    StoredFloat = 7,
    StoredDouble = 8,
    StoredTimestamp = 9,
    StoredBlob = 10,
    StoredReference = 11
};

std::uint32_t digestOf(const std::string& text) {
    std::uint32_t digest = 0x811C9DC5U;
    for (const char c : text)
        digest = (digest ^ static_cast<unsigned char>(c)) * 0x01000193U;
    return digest;
}

// Notes what a dummy reports.
class ShapeHandler final : public EmptyHandler {
public:
    /// Without a model all many-references are noted, whatever they refer to.
    ShapeHandler(Model* owner, ClassShape& target) : model(owner), shape(target) {}

    void handleULong(const String& name, unsigned long&) override { add(name, StoredULong); }
    void handleLong(const String& name, long&) override { add(name, StoredLong); }
    void handleString(const String& name, String&, int) override { add(name, StoredText); }
    void handleInt(const String& name, int&) override { add(name, StoredInt); }
    void handleUInt(const String& name, unsigned int&) override { add(name, StoredUInt); }
    void handleBool(const String& name, bool&) override { add(name, StoredBool); }
    void handleFloat(const String& name, float&) override { add(name, StoredFloat); }
    void handleDouble(const String& name, double&) override { add(name, StoredDouble); }
    void handleTimestamp(const String& name, Timestamp&) override { add(name, StoredTimestamp); }
    void handleBlob(const String& name, Blob&) override { add(name, StoredBlob); }
    void handleOneAssociated(const String&, const String& role, OneAssociatedInstance*,
                             Association::ConsistencyRule) override {
        add(role, StoredReference);
    }

    // The links of one-to-many associations lie with the other end.
    void handleManyAssociated(const String& name, const String& role,
                              ManyAssociatedInstances*) override {
        if (model == nullptr || isManyToMany(model->getAssociation(name)))
            shape[{LinkRecordKind, textOf(role)}] =
                static_cast<int>(digestOf(textOf(name)) >> 2 | 0x40000000U);
    }

private:
    static std::string textOf(const String& text) { return static_cast<const char*>(text); }
    void add(const String& name, Stored kind) { shape[{FieldRecordKind, textOf(name)}] = kind; }

    Model* model;
    ClassShape& shape;
};

// Blanks around commas mean nothing. Databases index short names only: MariaDB 3,072
// bytes of a key, of which a character takes four, and the name is not all of the key.
std::string nameOf(const Index& index) {
    constexpr std::size_t longest = 500;
    std::string list;
    for (const char* at = index.getFields(); *at != '\0'; ++at) {
        while (*at == ',' && !list.empty() && list.back() == ' ')
            list.pop_back();
        if (*at != ' ' || (!list.empty() && list.back() != ','))
            list += *at;
    }
    while (!list.empty() && list.back() == ' ')
        list.pop_back();
    if (list.size() > longest)
        list =
            "list of " + std::to_string(list.size()) + " bytes, " + std::to_string(digestOf(list));
    return list + (index.isUnique() ? " unique" : "");
}

void walk(Class* cls, Model* model, ClassShape& shape) {
    const std::unique_ptr<Instance> dummy(cls->getDummy());
    ShapeHandler noting(model, shape);
    walkFields(dummy.get(), noting);
}

}  // namespace

ClassShape reportOf(Class* cls) {
    ClassShape shape;
    walk(cls, nullptr, shape);
    return shape;
}

ClassShape shapeOf(Class* cls) {
    ClassShape shape;
    if (cls->isAbstract())
        return shape;
    walk(cls, cls->getModel(), shape);
    for (const Class* at = cls; at != nullptr; at = at->getSuperClass())
        for (const Index& index : at->getIndices())
            shape[{IndexRecordKind, nameOf(index)}] = 1;
    return shape;
}

std::string wordsForField(int number) {
    switch (number) {
    case StoredULong: return "an unsigned long";
    case StoredLong: return "a long";
    case StoredText: return "a text";
    case StoredInt: return "an int";
    case StoredUInt: return "an unsigned int";
    case StoredBool: return "a bool";
    case StoredFloat: return "a float";
    case StoredDouble: return "a double";
    case StoredTimestamp: return "a timestamp";
    case StoredBlob: return "a blob";
    case StoredReference: return "a reference";
    default: return "something else";
    }
}

}  // namespace Kes
