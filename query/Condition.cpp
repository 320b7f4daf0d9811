#include <kes/Condition.h>

#include <memory>
#include <typeinfo>
#include <utility>
#include <vector>

#include <kes/Attribute.h>
#include <kes/ConditionTranslator.h>
#include <kes/Role.h>
#include <kes/Selection.h>

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

namespace {

// Not for classes derived from it, which copy and destroy themselves.
bool isCombination(const Condition& condition) {
    return typeid(condition) == typeid(CombinationCondition);
}

}  // namespace

// Copies with a list of work instead of recursion: a chain of a million
// operands is as deep as it is long. What is copied belongs to this object at
// once, so that its destructor frees it when memory runs out.
CombinationCondition::CombinationCondition(const CombinationCondition& other)
    : CombinationCondition(nullptr, other.op, nullptr) {
    std::vector<std::pair<Condition**, const Condition*>> work{{&left, other.left},
                                                               {&right, other.right}};
    while (!work.empty()) {
        const auto [target, source] = work.back();
        work.pop_back();
        if (source == nullptr || !isCombination(*source)) {
            *target = source != nullptr ? source->getNew() : nullptr;
            continue;
        }
        const auto* joined = static_cast<const CombinationCondition*>(source);
        auto* copy = new CombinationCondition(nullptr, joined->op, nullptr);
        *target = copy;
        work.emplace_back(&copy->left, joined->left);
        work.emplace_back(&copy->right, joined->right);
    }
}

CombinationCondition::~CombinationCondition() {
    destroy(left);
    destroy(right);
}

// Needs no memory: a combination on the way down keeps the one above it in the
// place of its left operand, which is destroyed first.
void CombinationCondition::destroy(Condition* tree) {
    CombinationCondition* above = nullptr;
    for (Condition* next = tree;;) {
        if (next != nullptr && isCombination(*next)) {
            auto* joined = static_cast<CombinationCondition*>(next);
            next = std::exchange(joined->left, above);
            above = joined;
            continue;
        }
        delete next;
        if (above == nullptr)
            return;
        CombinationCondition* done = above;
        above = static_cast<CombinationCondition*>(std::exchange(done->left, nullptr));
        next = std::exchange(done->right, nullptr);
        delete done;
    }
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
