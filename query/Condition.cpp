#include <kes/Condition.h>

#include <memory>

#include <kes/Attribute.h>
#include <kes/ConditionTranslator.h>
#include <kes/Role.h>
#include <kes/Selection.h>

#include "query/ConditionTree.h"
#include "query/EmptiedTests.h"

namespace Kes {

Condition::~Condition() = default;

CombinationCondition Condition::operator&(const Condition& other) const {
    std::unique_ptr<Condition> rightCopy(other.getNew());
    Condition* leftCopy = getNew();
    return CombinationCondition(leftCopy, AND, rightCopy.release());
}

CombinationCondition Condition::operator||(const Condition& other) const {
    std::unique_ptr<Condition> rightCopy(other.getNew());
    Condition* leftCopy = getNew();
    return CombinationCondition(leftCopy, OR, rightCopy.release());
}

CombinationCondition::CombinationCondition(Condition* leftOperand, LogicalOperator logicalOperator,
                                           Condition* rightOperand)
    : left(leftOperand),
      right(rightOperand),
      op(logicalOperator) {}

CombinationCondition::CombinationCondition(const CombinationCondition& other)
    : CombinationCondition(nullptr, other.op, nullptr) {
    ConditionTree::copy(left, other.left);
    ConditionTree::copy(right, other.right);
}

CombinationCondition::~CombinationCondition() {
    ConditionTree::destroy(left);
    ConditionTree::destroy(right);
}

void CombinationCondition::translate(ConditionTranslator* translator) {
    translator->translate(left, op, right);
}

Condition* CombinationCondition::getNew() const {
    return new CombinationCondition(*this);
}

template <class T>
AttributeCondition<T>::AttributeCondition(Attribute* comparedAttribute, int comparisonOperator,
                                          T constant)
    : attribute(comparedAttribute),
      op(comparisonOperator),
      value(constant) {}

template <class T>
AttributeCondition<T>::AttributeCondition(const AttributeCondition& other)
    : Condition(other),
      attribute(nullptr),
      op(other.op),
      value(other.value) {
    attribute = new Attribute(*other.attribute);
}

template <class T>
AttributeCondition<T>::~AttributeCondition() {
    Attribute::deleteThis(attribute);
}

template <class T>
void AttributeCondition<T>::translate(ConditionTranslator* translator) {
    translator->translate(attribute, op, value);
}

template <class T>
Condition* AttributeCondition<T>::getNew() const {
    return new AttributeCondition<T>(*this);
}

template class AttributeCondition<unsigned long>;
template class AttributeCondition<long>;
template class AttributeCondition<int>;
template class AttributeCondition<unsigned int>;
template class AttributeCondition<String>;
template class AttributeCondition<bool>;
template class AttributeCondition<float>;
template class AttributeCondition<double>;
template class AttributeCondition<Timestamp>;

OneAssociatedCondition::OneAssociatedCondition(Role* testedRole,
                                               AssociationOperator associationOperator,
                                               Instance* partner) try
    : role(testedRole),
      op(associationOperator),
      instance(partner),
      hasInstance(partner != nullptr) {
} catch (...) {
    delete testedRole;  // a pointer of another thread raises
    throw;
}

OneAssociatedCondition::OneAssociatedCondition(const OneAssociatedCondition& other)
    : Condition(other),
      role(nullptr),
      op(other.op),
      instance(other.instance),
      hasInstance(other.hasInstance) {
    role = new Role(*other.role);
}

OneAssociatedCondition::~OneAssociatedCondition() {
    delete role;
}

void OneAssociatedCondition::translate(ConditionTranslator* translator) {
    if (hasInstance && instance == nullptr)
        EmptiedTests::note();
    translator->translate(role, op, static_cast<Instance*>(instance));
}

Condition* OneAssociatedCondition::getNew() const {
    return new OneAssociatedCondition(*this);
}

ManyAssociatedCondition::ManyAssociatedCondition(Role* testedRole,
                                                 AssociationOperator associationOperator,
                                                 AssociatedClass* nested)
    : role(testedRole),
      op(associationOperator),
      associatedClass(nested) {}

ManyAssociatedCondition::ManyAssociatedCondition(const ManyAssociatedCondition& other)
    : Condition(other),
      op(other.op) {
    auto roleCopy = std::make_unique<Role>(*other.role);
    associatedClass = new AssociatedClass(*other.associatedClass);
    role = roleCopy.release();
}

ManyAssociatedCondition::~ManyAssociatedCondition() {
    delete role;
    delete associatedClass;
}

void ManyAssociatedCondition::translate(ConditionTranslator* translator) {
    translator->translate(role, op, associatedClass);
}

Condition* ManyAssociatedCondition::getNew() const {
    return new ManyAssociatedCondition(*this);
}

}  // namespace Kes
