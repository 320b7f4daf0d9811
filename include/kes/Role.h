// One end of an association, as queries name it.

#pragma once

#include <cstddef>

#include <kes/Condition.h>
#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// The reference that instances of a class hold through an association.
///
/// A plain value; class and association are borrowed from their model. The
/// comparisons build conditions: `==` holds for instances that have the given
/// partner (or, for null, none), `!=` for all the others.
class KES_EXPORT Role {
public:
    Role(Class* owner, const String& roleName, Association* of)
        : cls(owner),
          role(roleName.unshared()),
          association(of) {}

    Class* getClass() const { return cls; }
    const String& getRole() const { return role; }

    /// Null when the association's name was unknown; the query is then refused.
    Association* getAssociation() const { return association; }

    OneAssociatedCondition operator==(Instance* instance) const;
    OneAssociatedCondition operator!=(Instance* instance) const;
    OneAssociatedCondition operator==(const Pointer<Instance>& instance) const;
    OneAssociatedCondition operator!=(const Pointer<Instance>& instance) const;

    /// Takes the selection's condition away from it: the nested selection must
    /// not be iterated afterwards, as it would deliver all objects of its class.
    /// It may be nested again, with the same condition.
    ManyAssociatedCondition operator==(Selection& nested) const;
    ManyAssociatedCondition operator!=(Selection& nested) const;

    /// Tests for no partner at all.
    OneAssociatedCondition operator==(std::nullptr_t) const;
    OneAssociatedCondition operator!=(std::nullptr_t) const;

private:
    Class* cls;
    String role;
    Association* association;
};

}  // namespace Kes
