// Query conditions.
//
// Applications write expressions with operators on Attribute, Role and
// Condition. The nodes hold no query text: a driver's ConditionTranslator turns
// them into its own language.

#pragma once

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/Pointer.h>
#include <kes/String.h>
#include <kes/Timestamp.h>

namespace Kes {

/// A node of a condition tree (a composite). Immutable; whoever holds a root owns
/// its tree.
///
/// The order of the virtual operations is a contract with drivers.
class KES_EXPORT Condition {
public:
    enum LogicalOperator { AND = 0, OR = 1 };

    /// Tests of a role. Drivers receive these numbers.
    struct KES_EXPORT Associations {
        enum Operator { EQUAL = 0, NOT_EQUAL = 1 };
    };
    using AssociationOperator = Associations::Operator;

    /// Comparisons of an attribute. Drivers receive these numbers.
    enum ComparisonOperator {
        EQUAL = 0,
        NOT_EQUAL = 1,
        GREATER = 2,
        LESS = 3,
        GREATER_OR_EQUAL = 4,
        LESS_OR_EQUAL = 5,
        LIKE = 6,
        NOT_LIKE = 7  ///< For drivers with a Calculator only.
    };

    virtual ~Condition();

    /// Hands this node's parts to the translator in exactly one call.
    virtual void translate(ConditionTranslator* translator) = 0;

    /// A deep copy, new, for the caller.
    virtual Condition* getNew() const = 0;

    /// Both operands are copied. `&` binds tighter than `||`.
    CombinationCondition operator&(const Condition& other) const;
    CombinationCondition operator||(const Condition& other) const;

protected:
    Condition() = default;
    Condition(const Condition&) = default;
    Condition& operator=(const Condition&) = default;
};

/// Joins two conditions. Assignment copies the owned pointers as they are, here
/// and in the nodes below: never let both objects be destroyed.
class KES_EXPORT CombinationCondition : public Condition {
public:
    /// Adopts both conditions.
    CombinationCondition(Condition* leftOperand, LogicalOperator logicalOperator,
                         Condition* rightOperand);
    CombinationCondition(const CombinationCondition& other);
    CombinationCondition& operator=(const CombinationCondition& other) = default;

    /// Depth costs no stack: chains of a million operands are copied and destroyed too,
    /// and so is what is nested as deep.
    ~CombinationCondition() override;

    void translate(ConditionTranslator* translator) override;
    Condition* getNew() const override;

private:
    friend class ConditionTree;

    Condition* left;   // owned
    Condition* right;  // owned
    LogicalOperator op;
};

/// Compares an attribute with a constant. Exists for exactly nine value types.
template <class T>
class AttributeCondition : public Condition {
public:
    /// Adopts the attribute, which must have been made with new.
    AttributeCondition(Attribute* comparedAttribute, int comparisonOperator, T constant);
    AttributeCondition(const AttributeCondition& other);
    AttributeCondition& operator=(const AttributeCondition& other) = default;
    ~AttributeCondition() override;

    void translate(ConditionTranslator* translator) override;
    Condition* getNew() const override;

private:
    Attribute* attribute;  // owned
    int op;
    T value;
};

extern template class KES_EXPORT AttributeCondition<unsigned long>;
extern template class KES_EXPORT AttributeCondition<long>;
extern template class KES_EXPORT AttributeCondition<int>;
extern template class KES_EXPORT AttributeCondition<unsigned int>;
extern template class KES_EXPORT AttributeCondition<String>;
extern template class KES_EXPORT AttributeCondition<bool>;
extern template class KES_EXPORT AttributeCondition<float>;
extern template class KES_EXPORT AttributeCondition<double>;
extern template class KES_EXPORT AttributeCondition<Timestamp>;

/// Tests a role against one instance, or against null for no partner.
class KES_EXPORT OneAssociatedCondition : public Condition {
public:
    /// Adopts the role. The instance is kept alive by a Pointer. A selection
    /// whose condition has lost its instance, because the model was closed since,
    /// raises SELERR (ERROR) at its first next.
    OneAssociatedCondition(Role* testedRole, AssociationOperator associationOperator,
                           Instance* partner);
    OneAssociatedCondition(const OneAssociatedCondition& other);
    OneAssociatedCondition& operator=(const OneAssociatedCondition& other) = default;
    ~OneAssociatedCondition() override;

    void translate(ConditionTranslator* translator) override;
    Condition* getNew() const override;

private:
    Role* role;  // owned
    AssociationOperator op;
    Pointer<Instance> instance;
    bool hasInstance;  // from the beginning: to be empty is not to test for none
};

/// Tests a role against the result of a nested selection: EQUAL holds when some
/// partner is in the result, NOT_EQUAL when none is.
class KES_EXPORT ManyAssociatedCondition : public Condition {
public:
    /// Adopts both.
    ManyAssociatedCondition(Role* testedRole, AssociationOperator associationOperator,
                            AssociatedClass* nested);
    ManyAssociatedCondition(const ManyAssociatedCondition& other);
    ManyAssociatedCondition& operator=(const ManyAssociatedCondition& other) = default;
    ~ManyAssociatedCondition() override;

    void translate(ConditionTranslator* translator) override;
    Condition* getNew() const override;

private:
    friend class ConditionTree;

    Role* role;  // owned
    AssociationOperator op;
    AssociatedClass* associatedClass;  // owned
};

}  // namespace Kes
