// Associations between classes, and their two ends.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/PtrList.h>
#include <kes/String.h>

namespace Kes {

/// One named, binary relation between two persistent classes.
///
/// Applications do not make associations: the model discovers them from the
/// references that classes report, and owns them.
class KES_EXPORT Association {
public:
    /// How many partners an instance at an end refers to.
    enum Plurality { One = 0, Many = 1 };

    /// What happens to the partners of a removed instance.
    enum ConsistencyRule {
        Unlink = 0,        ///< Its links are dissolved.
        CascadeRemove = 1  ///< Partners that refer to it with a one-reference are removed too.
    };

    Association(const String& associationName, Class* one, const String& roleOfOne,
                Plurality pluralityOfOne, Class* other, const String& roleOfOther,
                Plurality pluralityOfOther, ConsistencyRule rule);

    /// Only the first end is known; initializeOtherClass completes it.
    Association(const String& associationName, Class* one, const String& roleOfOne,
                Plurality pluralityOfOne, ConsistencyRule rule);

    Association(const Association& other) = default;
    Association& operator=(const Association& other) = default;

    /// Does not delete the listener list.
    virtual ~Association();

    /// Identity: true only for the same object.
    bool operator==(const Association& other) const { return this == &other; }

    const String& getName() const { return name; }
    Class* getOneClass() const { return oneClass; }

    /// Null while only one end is known.
    Class* getOtherClass() const { return otherClass; }
    const String& getOneRole() const { return oneRole; }
    const String& getOtherRole() const { return otherRole; }
    ConsistencyRule getConsistencyRule() const { return consistencyRule; }

    /// Completes the second end, or moves an end up to an ancestor that
    /// reports the same role.
    void initializeOtherClass(Class* cls, const String& role, Plurality plurality,
                              ConsistencyRule rule);

    /// The three look-ups below raise ASSERR (FATAL) for a role that neither
    /// end has; when the handler returns, the process ends with exit status 1.
    Class* getClassFor(const String& role) const;
    const String& getAssociatedRole(const String& role) const;
    Plurality getPluralityFor(const String& role) const;

    /// Registers a borrowed listener; a second registration does nothing.
    void addListener(Listener* listener);
    void removeListener(Listener* listener);

protected:
    /// Tell both instances' listeners and then the association's.
    void fireAssociationAdded(Instance* one, Instance* other);
    void fireAssociationRemoved(Instance* one, Instance* other);

private:
    friend class Events;

    [[noreturn]] void failOnRole(const char* operation, const String& role) const;

    Class* oneClass;
    Class* otherClass;
    String name;
    String oneRole;
    String otherRole;
    Plurality onePlurality;
    Plurality otherPlurality;
    ConsistencyRule consistencyRule;
    PtrList<Listener>* listeners = nullptr;  // null while empty
};

}  // namespace Kes
