// The nodes of conditions over described classes.
//
// A node names fields by their places and holds copies of values. When a query
// is asked, the tree is built anew from conditions of the engine, for the class
// that is queried; the names come from the class's table of fields. Negations are
// carried down to the comparisons: what is rendered never negates what could be
// unknown to the database, so there are two truth values everywhere.

#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <typeinfo>
#include <utility>
#include <variant>
#include <vector>

#include <kes/Class.h>
#include <kes/Condition.h>
#include <kes/Predicate.h>
#include <kes/String.h>
#include <kes/Timestamp.h>

namespace Kes {

class JoinNode;
class Session;
struct DescribedField;

/// No Strings: a condition may serve several threads.
using StoredValue = std::variant<std::monostate, unsigned long, long, int, unsigned int, bool,
                                 float, double, std::string, Timestamp>;

struct OperandValue {
    StoredValue value;  // monostate for what an empty optional is equal to
    std::string fault;  // why no field has the value; "" when one may
};

using OperandPtr = std::shared_ptr<const OperandValue>;

using ConditionPtr = std::unique_ptr<Condition>;

/// What a condition is built for.
struct PredicateScope {
    const Session& session;
    Class* cls;
    bool knowsNotLike;  // the driver
    int level = 0;      // how deep the node lies, chains of one operator not counted

    /// The same one level down, for objects of `target`. Raises Error (Misuse) for a
    /// condition that is deeper than any database takes.
    PredicateScope below(Class* target) const;

    /// The field's name, and of an optional one that of its mark. Raises Error
    /// (Declaration) for a member that is not described.
    struct Names {
        String name;
        String flag;
    };
    Names namesOf(FieldKey field) const;
};

class PredicateNode {
public:
    PredicateNode() = default;
    PredicateNode(const PredicateNode&) = delete;
    PredicateNode& operator=(const PredicateNode&) = delete;
    virtual ~PredicateNode() = default;

    /// True of the objects of which the node is true; the other way round when
    /// it is negated.
    virtual ConditionPtr build(const PredicateScope& scope, bool negated) const = 0;

    /// Null for other nodes.
    virtual const JoinNode* asJoin() const { return nullptr; }
    virtual const PredicateNode* getOpposite() const { return nullptr; }

    /// Gives away the nodes below, for one that goes.
    virtual void giveAway(std::vector<std::shared_ptr<const PredicateNode>>&) const {}
};

using NodePtr = std::shared_ptr<const PredicateNode>;

/// Programs join, turn and nest conditions in loops, so that nodes may lie as deep as
/// there are of them: they are destroyed without recursion.
class InnerNode : public PredicateNode {
public:
    explicit InnerNode(NodePtr a, NodePtr b = nullptr) : left(std::move(a)), right(std::move(b)) {}
    ~InnerNode() override;

    void giveAway(std::vector<NodePtr>& nodes) const final;

protected:
    // A node that nobody else has is taken apart by the one above it.
    mutable NodePtr left;
    mutable NodePtr right;  // null where there is one below only
};

/// The field that an object's id is in.
const String& idName();

std::string nameOfClass(const PredicateScope& scope);

/// Both, or one of them, as the operator says.
ConditionPtr joined(ConditionPtr a, Condition::LogicalOperator op, ConditionPtr b);

/// All of the conditions, which are not empty.
ConditionPtr joined(std::vector<ConditionPtr> conditions, Condition::LogicalOperator op);

// --- the kinds of nodes ---

NodePtr nodeOfComparison(FieldKey field, PredicateBase::Comparison op, OperandPtr value);

/// The field has one of the values.
NodePtr nodeOfList(FieldKey field, std::vector<OperandPtr> values);
NodePtr nodeOfPattern(FieldKey field, std::string_view pattern);

/// The optional field has a value.
NodePtr nodeOfMark(FieldKey field);

/// The partner is one of the link's; null asks for none at all.
NodePtr nodeOfLink(FieldKey field, Instance* partner);

/// Some partner of the class fulfils the condition.
NodePtr nodeOfPartner(FieldKey field, const std::type_info& partner, NodePtr condition);
NodePtr nodeOfBoth(NodePtr a, Condition::LogicalOperator op, NodePtr b);
NodePtr nodeOfOpposite(NodePtr operand);

}  // namespace Kes
