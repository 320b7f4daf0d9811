#include <kes/Condition.h>

#include <memory>
#include <typeinfo>
#include <utility>
#include <vector>

#include <kes/Attribute.h>
#include <kes/ConditionTranslator.h>
#include <kes/Role.h>
#include <kes/Selection.h>

namespace Kes {

Condition::~Condition() = default;

CombinationCondition Condition::operator&(const Condition& other) const {
    Condition* rightCopy = other.getNew();
    return CombinationCondition(getNew(), AND, rightCopy);
}

CombinationCondition Condition::operator||(const Condition& other) const {
    Condition* rightCopy = other.getNew();
    return CombinationCondition(getNew(), OR, rightCopy);
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
// operands is as deep as it is long.
CombinationCondition::CombinationCondition(const CombinationCondition& other)
    : Condition(other),
      left(nullptr),
      right(nullptr),
      op(other.op) {
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
    std::vector<Condition*> work{right, left};
    while (!work.empty()) {
        Condition* next = work.back();
        work.pop_back();
        if (next != nullptr && isCombination(*next)) {
            auto* joined = static_cast<CombinationCondition*>(next);
            work.push_back(joined->right);
            work.push_back(joined->left);
            joined->left = joined->right = nullptr;
        }
        delete next;
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
      attribute(new Attribute(*other.attribute)),
      op(other.op),
      value(other.value) {}

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
                                               Instance* partner)
    : role(testedRole),
      op(associationOperator),
      instance(partner) {}

OneAssociatedCondition::OneAssociatedCondition(const OneAssociatedCondition& other)
    : Condition(other),
      role(new Role(*other.role)),
      op(other.op),
      instance(other.instance) {}

OneAssociatedCondition::~OneAssociatedCondition() {
    delete role;
}

void OneAssociatedCondition::translate(ConditionTranslator* translator) {
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
      role(new Role(*other.role)),
      op(other.op),
      associatedClass(new AssociatedClass(*other.associatedClass)) {}

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
