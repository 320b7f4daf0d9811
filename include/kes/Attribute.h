// Persistent fields and declared indexes.

#pragma once

#include <kes/Condition.h>
#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// Names one persistent field of a class; the starting point of conditions.
///
/// A plain value. The class is borrowed from its model. The name is not
/// checked here; a driver refuses a condition on a field that the class does
/// not report.
class KES_EXPORT Attribute {
public:
    /// Empty name, null class.
    Attribute() = default;
    Attribute(Class* owner, const String& fieldName) : name(fieldName.unshared()), cls(owner) {}

    const String& getName() const { return name; }
    Class* getClass() const { return cls; }

    /// Deletes this object, which must have been made with new. Does nothing
    /// on a null pointer.
    void deleteThis();
    static void deleteThis(Attribute* attribute);

#define KES_COMPARISON(symbol)                                                    \
    AttributeCondition<unsigned long> operator symbol(unsigned long value) const; \
    AttributeCondition<long> operator symbol(long value) const;                   \
    AttributeCondition<int> operator symbol(int value) const;                     \
    AttributeCondition<unsigned int> operator symbol(unsigned int value) const;   \
    AttributeCondition<bool> operator symbol(bool value) const;                   \
    AttributeCondition<float> operator symbol(float value) const;                 \
    AttributeCondition<double> operator symbol(double value) const;               \
    AttributeCondition<Timestamp> operator symbol(Timestamp value) const;         \
    AttributeCondition<String> operator symbol(const String& value) const;        \
    AttributeCondition<String> operator symbol(const char* value) const;

    KES_COMPARISON(==)
    KES_COMPARISON(!=)
    KES_COMPARISON(>)
    KES_COMPARISON(<)
    KES_COMPARISON(>=)
    KES_COMPARISON(<=)

#undef KES_COMPARISON

    /// True for texts that match `pattern`: `%` stands for any run of
    /// characters, `_` for one, `\` takes the next one literally. Case matters.
    AttributeCondition<String> like(const String& pattern) const;

private:
    String name;
    Class* cls = nullptr;
};

/// A declared database index over one or more fields of a class.
class KES_EXPORT Index {
public:
    /// No fields, unique.
    Index() = default;

    /// `fieldList` names fields and one-reference roles, separated by commas.
    /// Drivers check it when they make the class's storage.
    Index(const String& fieldList, bool isUniqueIndex)
        : fields(fieldList.unshared()),
          unique(isUniqueIndex) {}

    const String& getFields() const { return fields; }
    bool isUnique() const { return unique; }

    bool operator==(const Index& other) const {
        return fields == other.fields && unique == other.unique;
    }
    bool operator!=(const Index& other) const { return !(*this == other); }

private:
    String fields;
    bool unique = true;
};

}  // namespace Kes
