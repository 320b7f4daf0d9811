#include "query/ConditionTree.h"

#include <memory>
#include <typeinfo>
#include <utility>
#include <vector>

#include <kes/Role.h>
#include <kes/Selection.h>

namespace Kes {

namespace {

// Not for classes derived from it, which copy and destroy themselves.
bool isCombination(const Condition& condition) {
    return typeid(condition) == typeid(CombinationCondition);
}

}  // namespace

// Where a test of a role has its nested condition; null for other conditions.
Condition** ConditionTree::nestedIn(const Condition& condition) {
    if (typeid(condition) != typeid(ManyAssociatedCondition))
        return nullptr;
    AssociatedClass* nested =
        static_cast<const ManyAssociatedCondition&>(condition).associatedClass;
    const bool isPlain = nested != nullptr && typeid(*nested) == typeid(AssociatedClass);
    return isPlain ? &nested->condition : nullptr;
}

// Without the nested condition.
ManyAssociatedCondition* ConditionTree::copyOfTest(const ManyAssociatedCondition& test) {
    auto role = std::make_unique<Role>(*test.role);
    const AssociatedClass& nested = *test.associatedClass;
    std::unique_ptr<AssociatedClass> inner(new AssociatedClass(nested, nullptr));
    auto* copied = new ManyAssociatedCondition(role.get(), test.op, inner.get());
    static_cast<void>(role.release());
    static_cast<void>(inner.release());
    return copied;
}

void ConditionTree::copy(Condition*& target, const Condition* source) {
    std::vector<std::pair<Condition**, const Condition*>> work{{&target, source}};
    while (!work.empty()) {
        const auto [place, next] = work.back();
        work.pop_back();
        if (next == nullptr) {
            *place = nullptr;
        } else if (isCombination(*next)) {
            const auto* joined = static_cast<const CombinationCondition*>(next);
            auto* copied = new CombinationCondition(nullptr, joined->op, nullptr);
            *place = copied;
            work.emplace_back(&copied->left, joined->left);
            work.emplace_back(&copied->right, joined->right);
        } else if (Condition** nested = nestedIn(*next)) {
            *place = copyOfTest(*static_cast<const ManyAssociatedCondition*>(next));
            work.emplace_back(nestedIn(**place), *nested);
        } else {
            *place = next->getNew();
        }
    }
}

// A combination on the way down keeps the one above it in the place of its left
// operand, which is destroyed first. What is nested goes after what it is nested in.
void ConditionTree::destroy(Condition* tree) {
    CombinationCondition* above = nullptr;
    for (Condition* next = tree;;) {
        if (next != nullptr && isCombination(*next)) {
            auto* joined = static_cast<CombinationCondition*>(next);
            next = std::exchange(joined->left, above);
            above = joined;
            continue;
        }
        Condition** place = next != nullptr ? nestedIn(*next) : nullptr;
        Condition* nested = place != nullptr ? std::exchange(*place, nullptr) : nullptr;
        delete next;
        if (nested != nullptr) {
            next = nested;
            continue;
        }
        if (above == nullptr)
            return;
        CombinationCondition* done = above;
        above = static_cast<CombinationCondition*>(std::exchange(done->left, nullptr));
        next = std::exchange(done->right, nullptr);
        delete done;
    }
}

}  // namespace Kes
