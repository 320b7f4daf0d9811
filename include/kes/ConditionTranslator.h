// How a driver renders conditions.

#pragma once

#include <kes/Condition.h>
#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// Visitor of condition nodes, which tell it their parts; drivers derive from it.
///
/// A node makes one call and does not recurse: a translator reaches the
/// children itself. All arguments are borrowed from the node. `op` is a
/// Condition::ComparisonOperator. The order of the virtual operations is a
/// contract with separately built drivers; it never changes.
class KES_EXPORT ConditionTranslator {
public:
    ConditionTranslator() = default;
    ConditionTranslator(const ConditionTranslator& other) = default;
    ConditionTranslator& operator=(const ConditionTranslator& other) = default;
    virtual ~ConditionTranslator();

    /// Two conditions that are joined by AND or OR.
    virtual void translate(Condition* left, Condition::LogicalOperator op, Condition* right) = 0;

    /// The nested selection's condition is null when it had none.
    virtual void translate(Role* role, Condition::AssociationOperator op,
                           AssociatedClass* associatedClass) = 0;

    /// `instance` is null in a test for no partner.
    virtual void translate(Role* role, Condition::AssociationOperator op, Instance* instance) = 0;

    /// The comparison of a field with a constant, by the type of the constant. Where
    /// the field is of another kind, the translator converts or refuses.
    virtual void translate(Attribute* attribute, int op, double value) = 0;
    virtual void translate(Attribute* attribute, int op, float value) = 0;
    virtual void translate(Attribute* attribute, int op, bool value) = 0;
    virtual void translate(Attribute* attribute, int op, const Timestamp& value) = 0;
    virtual void translate(Attribute* attribute, int op, const String& value) = 0;
    virtual void translate(Attribute* attribute, int op, int value) = 0;
    virtual void translate(Attribute* attribute, int op, unsigned int value) = 0;
    virtual void translate(Attribute* attribute, int op, long value) = 0;
    virtual void translate(Attribute* attribute, int op, unsigned long value) = 0;

    /// "a0", "a1", … in turn. Never clashes with "t", the alias of a top-level
    /// selection.
    const String getNewAlias();

private:
    int aliasCounter = 0;
};

}  // namespace Kes
