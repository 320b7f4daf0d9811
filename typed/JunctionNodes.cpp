// Conditions that others are joined to, or turned into their opposites.

#include <memory>
#include <utility>
#include <vector>

#include "typed/PredicateNode.h"

namespace Kes {

namespace {

class NotNode final : public PredicateNode {
public:
    explicit NotNode(NodePtr itsOperand) : operand(std::move(itsOperand)) {}
    ConditionPtr build(const PredicateScope& scope, bool negated) const override {
        return operand->build(scope, !negated);
    }

private:
    const NodePtr operand;
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
