#include "object/FieldWalk.h"

#ifdef KES_CHECKS

#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include <kes/Class.h>
#include <kes/Exception.h>

namespace Kes {

namespace {

enum class Kind { ULong, Long, Text, Int, UInt, Bool, Float, Double, Time, Blob, One, Many };

struct Field {
    Kind kind;
    std::string name;  // of a reference: of its association
    std::string role;  // of references

    bool isSame(const Field& other) const { return name == other.name && role == other.role; }
    std::string describe() const {
        return role.empty() ? "field " + name : "reference " + role + " of the association " + name;
    }
};

using Fields = std::vector<Field>;

// What each class reported in its first walk. Classes of models on several
// threads share the table; a class's own entry belongs to its model's thread.
class FieldTable {
public:
    Fields& of(const Class* cls) {
        const std::lock_guard guard(mutex);
        return fields[cls];
    }
    void forget(const Class* cls) {
        const std::lock_guard guard(mutex);
        fields.erase(cls);
    }

private:
    std::mutex mutex;
    std::unordered_map<const Class*, Fields> fields;
};

// Never destroyed: models may be static objects.
FieldTable& theTable() {
    static FieldTable& table = *new FieldTable;
    return table;
}

// Passes every field on and compares it with the class's first walk.
class FieldChecker final : public Handler {
public:
    FieldChecker(const Class* itsClass, Handler& checked, const Fields& first)
        : cls(itsClass),
          inner(checked),
          known(first) {}

    void handleULong(const String& name, unsigned long& value) override {
        note(Kind::ULong, name);
        inner.handleULong(name, value);
    }
    void handleLong(const String& name, long& value) override {
        note(Kind::Long, name);
        inner.handleLong(name, value);
    }
    void handleString(const String& name, String& value, int length) override {
        note(Kind::Text, name);
        inner.handleString(name, value, length);
    }
    void handleInt(const String& name, int& value) override {
        note(Kind::Int, name);
        inner.handleInt(name, value);
    }
    void handleUInt(const String& name, unsigned int& value) override {
        note(Kind::UInt, name);
        inner.handleUInt(name, value);
    }
    void handleBool(const String& name, bool& value) override {
        note(Kind::Bool, name);
        inner.handleBool(name, value);
    }
    void handleFloat(const String& name, float& value) override {
        note(Kind::Float, name);
        inner.handleFloat(name, value);
    }
    void handleDouble(const String& name, double& value) override {
        note(Kind::Double, name);
        inner.handleDouble(name, value);
    }
    void handleTimestamp(const String& name, Timestamp& value) override {
        note(Kind::Time, name);
        inner.handleTimestamp(name, value);
    }
    void handleBlob(const String& name, Blob& value) override {
        note(Kind::Blob, name);
        inner.handleBlob(name, value);
    }
    void handleOneAssociated(const String& association, const String& role,
                             OneAssociatedInstance* ref,
                             Association::ConsistencyRule rule) override {
        note(Kind::One, association, role);
        inner.handleOneAssociated(association, role, ref, rule);
    }
    void handleManyAssociated(const String& association, const String& role,
                              ManyAssociatedInstances* ref) override {
        note(Kind::Many, association, role);
        inner.handleManyAssociated(association, role, ref);
    }

    // After the walk.
    void finish() {
        if (!failed && count < known.size())
            fail("leaves out the " + known[count].describe());
    }

    bool hasFailed() const { return failed; }

    // The fields of a first walk.
    Fields takeFields() { return std::move(seen); }

private:
    void note(Kind kind, const String& name, const String& role = String()) {
        const std::size_t position = count++;
        if (failed)
            return;
        const Field field{kind, static_cast<const char*>(name), static_cast<const char*>(role)};
        if (position < known.size() && known[position].isSame(field)) {
            if (known[position].kind != kind)
                fail("reports the " + field.describe() + " as another kind than before");
            return;
        }
        const Fields& before = known.empty() ? seen : known;
        for (std::size_t i = 0; i < position && i < before.size(); ++i)
            if (before[i].isSame(field))
                return fail("reports the " + field.describe() + " twice");
        if (known.empty())
            seen.push_back(field);
        else
            fail("reports the " + field.describe() + " in another place than before");
    }

    // Before the field is passed on: a handler that expects another one could
    // do anything with it.
    void fail(const std::string& fault) {
        failed = true;
        Exception(Exception::ERROR, "DECLERR", "Instance::handle",
                  String("The class ") + cls->getName() + " " + fault.c_str() +
                      "; its handle operation has to report each field once, with the same kind "
                      "and in the same order at every call")
            .handle();
    }

    const Class* cls;
    Handler& inner;
    const Fields& known;  // empty during the class's first walk
    Fields seen;          // of that walk
    std::size_t count = 0;
    bool failed = false;
};

}  // namespace

void walkFields(Instance* instance, Handler& handler) {
    const Class* cls = instance->getClass();
    Fields& known = theTable().of(cls);
    FieldChecker checker(cls, handler, known);
    instance->handle(&checker);
    checker.finish();
    if (known.empty() && !checker.hasFailed())
        known = checker.takeFields();
}

void forgetFields(const Class* cls) {
    theTable().forget(cls);
}

}  // namespace Kes

#endif
