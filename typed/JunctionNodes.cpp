// Conditions that others are joined to, or turned into their opposites.

#include <memory>
#include <utility>
#include <vector>

#include "typed/PredicateNode.h"

namespace Kes {

namespace {

class NotNode final : public InnerNode {
public:
    using InnerNode::InnerNode;
    const PredicateNode* getOpposite() const override { return left.get(); }

    // Of many in a row every second one undoes the one before it.
    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        const PredicateNode* operand = this;
        for (; operand->getOpposite() != nullptr; operand = operand->getOpposite())
            negated = !negated;
        return operand->build(scope, negated);
    }
};

}  // namespace

InnerNode::~InnerNode() {
    std::vector<NodePtr> dying;
    InnerNode::giveAway(dying);
    while (!dying.empty()) {
        const NodePtr next = std::move(dying.back());
        dying.pop_back();
        if (next.use_count() == 1)
            next->giveAway(dying);
    }
}

void InnerNode::giveAway(std::vector<NodePtr>& nodes) const {
    for (NodePtr* each : {&left, &right})
        if (*each != nullptr)
            nodes.push_back(std::move(*each));
}

// A chain of one operator is one level, built without recursion.
class JoinNode final : public InnerNode {
public:
    JoinNode(NodePtr a, Condition::LogicalOperator itsOp, NodePtr b)
        : InnerNode(std::move(a), std::move(b)),
          op(itsOp) {}

    const JoinNode* asJoin() const override { return this; }

    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        const PredicateScope inner = scope.below(scope.cls);
        std::vector<ConditionPtr> conditions;
        std::vector<const PredicateNode*> pending{right.get(), left.get()};
        while (!pending.empty()) {
            const PredicateNode* next = pending.back();
            pending.pop_back();
            const JoinNode* join = next->asJoin();
            if (join == nullptr || join->op != op) {
                conditions.push_back(next->build(inner, negated));
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
};

ConditionPtr joined(ConditionPtr a, Condition::LogicalOperator op, ConditionPtr b) {
    ConditionPtr made = std::make_unique<CombinationCondition>(a.get(), op, b.get());
    static_cast<void>(a.release());
    static_cast<void>(b.release());
    return made;
}

ConditionPtr joined(std::vector<ConditionPtr> conditions, Condition::LogicalOperator op) {
    ConditionPtr all = std::move(conditions.front());
    for (std::size_t i = 1; i < conditions.size(); ++i)
        all = joined(std::move(all), op, std::move(conditions[i]));
    return all;
}

NodePtr nodeOfBoth(NodePtr a, Condition::LogicalOperator op, NodePtr b) {
    return std::make_shared<JoinNode>(std::move(a), op, std::move(b));
}

NodePtr nodeOfOpposite(NodePtr operand) {
    return std::make_shared<NotNode>(std::move(operand));
}

}  // namespace Kes
