// Conditions on the fields of a class.

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <kes/Attribute.h>
#include <kes/Error.h>
#include <kes/Selection.h>

#include "typed/DescribedClass.h"
#include "typed/PredicateNode.h"
#include "typed/SchemaRecord.h"

namespace Kes {

namespace {

using Comparison = PredicateBase::Comparison;

constexpr Comparison Opposites[] = {PredicateBase::NotEqual,    PredicateBase::Equal,
                                    PredicateBase::LessOrEqual, PredicateBase::GreaterOrEqual,
                                    PredicateBase::Less,        PredicateBase::Greater};

template <class T>
ConditionPtr compared(Class* cls, const String& name, int op, const T& value) {
    auto attribute = std::make_unique<Attribute>(cls, name);
    ConditionPtr made = std::make_unique<AttributeCondition<T>>(attribute.get(), op, value);
    static_cast<void>(attribute.release());
    return made;
}

ConditionPtr compared(Class* cls, const String& name, int op, const StoredValue& value) {
    return std::visit(
        [&](const auto& held) -> ConditionPtr {
            using Held = std::decay_t<decltype(held)>;
            if constexpr (std::is_same_v<Held, std::monostate>)
                return nullptr;
            else if constexpr (std::is_same_v<Held, std::string>)
                return compared(cls, name, op, String(held.c_str()));
            else
                return compared(cls, name, op, held);
        },
        value);
}

// No object has the id 0.
ConditionPtr constant(const PredicateScope& scope, bool truth) {
    return compared(scope.cls, idName(), truth ? Condition::NOT_EQUAL : Condition::EQUAL, 0UL);
}

ConditionPtr isMarked(const PredicateScope& scope, const String& flag, bool set) {
    return compared(scope.cls, flag, Condition::EQUAL, set ? 1 : 0);
}

void requireValue(const PredicateScope& scope, const PredicateScope::Names& names,
                  const OperandValue& operand) {
    if (operand.fault.empty())
        return;
    const std::string name = static_cast<const char*>(names.name);
    throw Error(ErrorKind::InvalidValue, "VALUEERR", "Kes::Query",
                "The field " + name + " of " + nameOfClass(scope) +
                    " objects is compared with a value that " + operand.fault +
                    "; compare it with another one",
                nameOfClass(scope), 0, name);
}

class CompareNode final : public PredicateNode {
public:
    CompareNode(FieldKey itsField, Comparison itsOp, std::shared_ptr<const OperandValue> itsOperand)
        : field(itsField),
          op(itsOp),
          operand(std::move(itsOperand)) {}

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        const PredicateScope::Names names = scope.namesOf(field);
        requireValue(scope, names, *operand);

        // An empty optional is not equal to a value, and neither less nor greater.
        const bool isInverse = op == PredicateBase::NotEqual;
        const Comparison asked = isInverse ? PredicateBase::Equal : op;
        const bool isNegated = negated != isInverse;
        const bool isEmptyAsked = std::holds_alternative<std::monostate>(operand->value);
        if (isEmptyAsked && asked != PredicateBase::Equal)
            return constant(scope, isNegated);
        if (isEmptyAsked)
            return isMarked(scope, names.flag, isNegated);
        const int rendered = isNegated ? Opposites[asked] : asked;
        ConditionPtr test = compared(scope.cls, names.name, rendered, operand->value);
        if (names.flag.size() == 0)
            return test;
        return joined(isMarked(scope, names.flag, !isNegated),
                      isNegated ? Condition::OR : Condition::AND, std::move(test));
    }

private:
    const FieldKey field;
    const Comparison op;
    const std::shared_ptr<const OperandValue> operand;
};

class LikeNode final : public PredicateNode {
public:
    LikeNode(FieldKey itsField, std::string_view itsPattern)
        : field(itsField),
          pattern(itsPattern) {
        operand.value = pattern;
        if (!isStorableText(pattern.data(), pattern.size()))
            operand.fault = "is not valid UTF-8 without NUL bytes";
    }

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        const PredicateScope::Names names = scope.namesOf(field);
        requireValue(scope, names, operand);
        ConditionPtr test = !negated             ? like(scope, names.name, Condition::LIKE)
                            : scope.knowsNotLike ? like(scope, names.name, Condition::NOT_LIKE)
                                                 : noneLike(scope, names.name);
        if (names.flag.size() == 0)
            return test;
        return joined(isMarked(scope, names.flag, !negated),
                      negated ? Condition::OR : Condition::AND, std::move(test));
    }

private:
    ConditionPtr like(const PredicateScope& scope, const String& name, int op) const {
        return compared(scope.cls, name, op, String(pattern.c_str()));
    }

    // For drivers that only know what is like a pattern: none of these objects.
    ConditionPtr noneLike(const PredicateScope& scope, const String& name) const {
        Selection alike(scope.cls);
        alike.setCondition(like(scope, name, Condition::LIKE).release());
        std::vector<ConditionPtr> others;
        others.push_back(constant(scope, true));
        while (alike.next())
            others.push_back(
                compared(scope.cls, idName(), Condition::NOT_EQUAL, alike.value()->getObjectID()));
        return Kes::joined(std::move(others), Condition::AND);
    }

    const FieldKey field;
    const std::string pattern;
    OperandValue operand;
};

class SetNode final : public PredicateNode {
public:
    explicit SetNode(FieldKey itsField) : field(itsField) {}

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        return isMarked(scope, scope.namesOf(field).flag, !negated);
    }

private:
    const FieldKey field;
};

// One test for all values, which drivers make one list of.
class AmongNode final : public PredicateNode {
public:
    AmongNode(FieldKey itsField, std::vector<std::shared_ptr<const OperandValue>> itsValues)
        : field(itsField),
          values(std::move(itsValues)) {}

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        const PredicateScope::Names names = scope.namesOf(field);
        const auto And = negated ? Condition::OR : Condition::AND;
        const auto Or = negated ? Condition::AND : Condition::OR;
        bool hasEmpty = false;
        std::vector<ConditionPtr> tests;
        for (const auto& each : values) {
            requireValue(scope, names, *each);
            if (std::holds_alternative<std::monostate>(each->value))
                hasEmpty = true;
            else
                tests.push_back(compared(scope.cls, names.name,
                                         negated ? Condition::NOT_EQUAL : Condition::EQUAL,
                                         each->value));
        }
        ConditionPtr all =
            tests.empty() ? constant(scope, negated) : Kes::joined(std::move(tests), Or);
        if (names.flag.size() == 0)
            return all;
        all = joined(isMarked(scope, names.flag, !negated), And, std::move(all));
        return hasEmpty ? joined(isMarked(scope, names.flag, negated), Or, std::move(all))
                        : std::move(all);
    }

private:
    const FieldKey field;
    const std::vector<std::shared_ptr<const OperandValue>> values;
};

}  // namespace

NodePtr nodeOfComparison(FieldKey field, PredicateBase::Comparison op, OperandPtr value) {
    return std::make_shared<CompareNode>(field, op, std::move(value));
}

NodePtr nodeOfList(FieldKey field, std::vector<OperandPtr> values) {
    return std::make_shared<AmongNode>(field, std::move(values));
}

NodePtr nodeOfPattern(FieldKey field, std::string_view pattern) {
    return std::make_shared<LikeNode>(field, pattern);
}

NodePtr nodeOfMark(FieldKey field) {
    return std::make_shared<SetNode>(field);
}

}  // namespace Kes
