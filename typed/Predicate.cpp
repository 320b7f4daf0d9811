#include <kes/Predicate.h>

#include <utility>

#include <kes/Association.h>
#include <kes/Attribute.h>
#include <kes/Error.h>
#include <kes/Handler.h>
#include <kes/Role.h>
#include <kes/Selection.h>

#include "typed/DescribedClass.h"
#include "typed/PredicateNode.h"
#include "typed/SchemaRecord.h"
#include "typed/Session.h"

namespace Kes {

namespace {

using Comparison = PredicateBase::Comparison;

constexpr Comparison Opposites[] = {PredicateBase::NotEqual,    PredicateBase::Equal,
                                    PredicateBase::LessOrEqual, PredicateBase::GreaterOrEqual,
                                    PredicateBase::Less,        PredicateBase::Greater};

// Takes the value that carries another one.
class Capture final : public EmptyHandler {
public:
    void handleULong(const String&, unsigned long& shown) override { value = shown; }
    void handleLong(const String&, long& shown) override { value = shown; }
    void handleString(const String&, String& shown, int) override {
        value = std::string(static_cast<const char*>(shown));
    }
    void handleInt(const String&, int& shown) override { value = shown; }
    void handleUInt(const String&, unsigned int& shown) override { value = shown; }
    void handleBool(const String&, bool& shown) override { value = shown; }
    void handleFloat(const String&, float& shown) override { value = shown; }
    void handleDouble(const String&, double& shown) override { value = shown; }
    void handleTimestamp(const String&, Timestamp& shown) override { value = shown; }

    StoredValue value;
};

const String& idName() {
    static const String name = String::constant("KesObjectID");
    return name;
}

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

ConditionPtr joined(ConditionPtr a, Condition::LogicalOperator op, ConditionPtr b) {
    ConditionPtr made = std::make_unique<CombinationCondition>(a.get(), op, b.get());
    static_cast<void>(a.release());
    static_cast<void>(b.release());
    return made;
}

std::string nameOfClass(const PredicateScope& scope) {
    return static_cast<const char*>(scope.cls->getName());
}

// "Ticket::title" of the name of a function that has it as an argument.
std::string memberOf(const FieldPlace& field) {
    const std::string whole = field.signature;
    const std::string mark = "Member = &";
    const std::size_t begin = whole.find(mark);
    if (begin == std::string::npos)
        return "a member of " + nameOf(*field.owner);
    const std::size_t from = begin + mark.size();
    return "the member " + whole.substr(from, whole.find_first_of(";,]", from) - from);
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

// The end of a link in the class that is queried.
std::unique_ptr<Role> roleOf(const PredicateScope& scope, FieldKey field) {
    const std::size_t offset = field().offset;
    const auto* cls = DescribedClass::from(scope.cls);
    if (cls != nullptr)
        for (const DescribedReference& each : cls->getReferences())
            if (each.offset == offset)
                return std::make_unique<Role>(scope.cls, each.role,
                                              scope.session.getAssociation(each.association));
    scope.namesOf(field);  // is none, and so not described at all
    return nullptr;
}

class LinkNode final : public PredicateNode {
public:
    LinkNode(FieldKey itsField, Instance* itsPartner)
        : field(itsField),
          partner(itsPartner),
          isAny(itsPartner == nullptr) {}

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        std::unique_ptr<Role> role = roleOf(scope, field);
        if (!isAny)
            requirePartner(scope);
        ConditionPtr made = std::make_unique<OneAssociatedCondition>(
            role.get(),
            negated ? Condition::Associations::NOT_EQUAL : Condition::Associations::EQUAL,
            partner.getInstance());
        static_cast<void>(role.release());
        return made;
    }

private:
    void requirePartner(const PredicateScope& scope) const {
        const Instance* instance = partner.getInstance();
        if (instance == nullptr)
            throw Error(ErrorKind::Misuse, "INSTERR", "Kes::Query",
                        "The object that a condition on " + nameOfClass(scope) +
                            " objects names is gone since its database was closed; make the "
                            "condition again",
                        nameOfClass(scope), 0);
        if (instance->getClass()->getModel() == &scope.session)
            return;
        const std::string cls = static_cast<const char*>(instance->getClass()->getName());
        throw Error(ErrorKind::Misuse, "INSTERR", "Kes::Query",
                    "The " + cls + " object " + std::to_string(instance->getObjectID()) +
                        " belongs to another database than the query; look for it in that one",
                    cls, instance->getObjectID());
    }

    const FieldKey field;
    const Pointer<Instance> partner;
    const bool isAny;  // asks for no partner at all
};

class PartnerNode final : public PredicateNode {
public:
    PartnerNode(FieldKey itsField, const std::type_info& itsPartner, NodePtr itsCondition)
        : field(itsField),
          partner(itsPartner),
          condition(std::move(itsCondition)) {}

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        std::unique_ptr<Role> role = roleOf(scope, field);
        Class* cls = scope.session.classOf(partner);
        Selection nested(cls);
        nested.setCondition(
            condition->build({scope.session, cls, scope.knowsNotLike}, false).release());
        auto asked = std::make_unique<AssociatedClass>(nested);
        ConditionPtr made = std::make_unique<ManyAssociatedCondition>(
            role.get(),
            negated ? Condition::Associations::NOT_EQUAL : Condition::Associations::EQUAL,
            asked.get());
        static_cast<void>(role.release());
        static_cast<void>(asked.release());
        return made;
    }

private:
    const FieldKey field;
    const std::type_info& partner;
    const NodePtr condition;
};

class NotNode final : public PredicateNode {
public:
    explicit NotNode(NodePtr itsOperand) : operand(std::move(itsOperand)) {}
    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        return operand->build(scope, !negated);
    }

private:
    const NodePtr operand;
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

// Programs join conditions in loops, so chains may be of any length: they are
// built and destroyed without recursion.
class JoinNode final : public PredicateNode {
public:
    JoinNode(NodePtr a, Condition::LogicalOperator itsOp, NodePtr b)
        : op(itsOp),
          left(std::move(a)),
          right(std::move(b)) {}

    ~JoinNode() override {
        std::vector<NodePtr> dying;
        dying.push_back(std::move(left));
        dying.push_back(std::move(right));
        while (!dying.empty()) {
            const NodePtr next = std::move(dying.back());
            dying.pop_back();
            const JoinNode* join = next.use_count() == 1 ? next->asJoin() : nullptr;
            if (join == nullptr)
                continue;
            dying.push_back(std::move(join->left));
            dying.push_back(std::move(join->right));
        }
    }

    const JoinNode* asJoin() const override { return this; }

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        std::vector<ConditionPtr> conditions;
        std::vector<const PredicateNode*> pending{right.get(), left.get()};
        while (!pending.empty()) {
            const PredicateNode* next = pending.back();
            pending.pop_back();
            const JoinNode* join = next->asJoin();
            if (join == nullptr || join->op != op) {
                conditions.push_back(next->build(scope, negated));
                continue;
            }
            pending.push_back(join->right.get());
            pending.push_back(join->left.get());
        }
        const bool isOr = (op == Condition::OR) != negated;
        return Kes::joined(std::move(conditions), isOr ? Condition::OR : Condition::AND);
    }

private:
    const Condition::LogicalOperator op;

    // A node that nobody else has is taken apart by the one above it.
    mutable NodePtr left;
    mutable NodePtr right;
};

ConditionPtr joined(std::vector<ConditionPtr> conditions, Condition::LogicalOperator op) {
    ConditionPtr all = std::move(conditions.front());
    for (std::size_t i = 1; i < conditions.size(); ++i)
        all = joined(std::move(all), op, std::move(conditions[i]));
    return all;
}

PredicateScope::Names PredicateScope::namesOf(FieldKey field) const {
    if (field == nullptr)
        return {idName(), String()};
    const FieldPlace place = field();
    if (const auto* described = DescribedClass::from(cls))
        for (const DescribedField& each : described->getFields())
            if (each.offset == place.offset)
                return {each.name, each.flag};
    throw Error(ErrorKind::Declaration, "DECLERR", "Kes::Query",
                "A query for " + nameOfClass(*this) + " objects names " + memberOf(place) +
                    ", which is not described; describe it",
                nameOfClass(*this), 0);
}

// --- operands ---

namespace {

using OperandPtr = std::shared_ptr<const OperandValue>;

OperandPtr operand(std::int64_t value) {
    return std::make_shared<OperandValue>(OperandValue{long{value}, ""});
}

OperandPtr operand(std::uint64_t value) {
    return std::make_shared<OperandValue>(OperandValue{value, ""});
}

OperandPtr operand(std::nullopt_t) {
    return std::make_shared<OperandValue>();
}

// Nothing is written through the pointer: what is shown stays as it is.
OperandPtr operand(const FieldCodec& codec, const void* value) {
    auto* member = const_cast<void*>(value);
    Capture capture;
    std::string fault = reasonToRefuse(codec, member);
    if (fault.empty())
        reportValue(capture, String(), codec, member);
    return std::make_shared<OperandValue>(OperandValue{std::move(capture.value), std::move(fault)});
}

OperandPtr operand(double value) {
    return operand(FieldCodecOf<double>::value, &value);
}

OperandPtr operand(std::string_view value) {
    const std::string text(value);
    return operand(FieldCodecOf<std::string>::value, &text);
}

NodePtr comparison(FieldKey field, Comparison op, OperandPtr value) {
    return std::make_shared<CompareNode>(field, op, std::move(value));
}

}  // namespace

OperandList::OperandList() = default;
OperandList::~OperandList() = default;

void OperandList::add(std::int64_t value) {
    values.push_back(operand(value));
}
void OperandList::add(std::uint64_t value) {
    values.push_back(operand(value));
}
void OperandList::add(double value) {
    values.push_back(operand(value));
}
void OperandList::add(std::string_view value) {
    values.push_back(operand(value));
}
void OperandList::add(const FieldCodec& codec, const void* value) {
    values.push_back(operand(codec, value));
}
void OperandList::add(std::nullopt_t) {
    values.push_back(operand(std::nullopt));
}

// --- predicates ---

PredicateBase::PredicateBase(const PredicateBase&) = default;
PredicateBase::PredicateBase(PredicateBase&&) noexcept = default;
PredicateBase& PredicateBase::operator=(const PredicateBase&) = default;
PredicateBase& PredicateBase::operator=(PredicateBase&&) noexcept = default;
PredicateBase::~PredicateBase() = default;

PredicateBase::PredicateBase(FieldKey field, Comparison op, std::int64_t value)
    : node(comparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, std::uint64_t value)
    : node(comparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, double value)
    : node(comparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, std::string_view value)
    : node(comparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, const FieldCodec& codec,
                             const void* value)
    : node(comparison(field, op, operand(codec, value))) {}

PredicateBase::PredicateBase(FieldKey field, Comparison op, std::nullopt_t value)
    : node(comparison(field, op, operand(value))) {}

PredicateBase::PredicateBase(FieldKey field, const OperandList& list)
    : node(std::make_shared<AmongNode>(field, list.values)) {}

PredicateBase::PredicateBase(FieldKey field, std::string_view pattern)
    : node(std::make_shared<LikeNode>(field, pattern)) {}

PredicateBase::PredicateBase(FieldKey field) : node(std::make_shared<SetNode>(field)) {}

PredicateBase::PredicateBase(FieldKey field, const RefBase& partner)
    : node(std::make_shared<LinkNode>(field, partner.getInstance())) {}

PredicateBase::PredicateBase(FieldKey field, const std::type_info& partner,
                             const PredicateBase& condition)
    : node(std::make_shared<PartnerNode>(field, partner, condition.node)) {}

PredicateBase::PredicateBase(const PredicateBase& a, Junction junction, const PredicateBase& b)
    : node(std::make_shared<JoinNode>(a.node, junction == Both ? Condition::AND : Condition::OR,
                                      b.node)) {}

PredicateBase::PredicateBase(Inverse, const PredicateBase& a)
    : node(std::make_shared<NotNode>(a.node)) {}

}  // namespace Kes
