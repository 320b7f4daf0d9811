#include <kes/Condition.h>
#include <kes/Selection.h>

#include "query/ConditionTree.h"

namespace Kes {

// A selection whose condition was taken before keeps a copy, so that it may be
// nested once more; for its own rows it has none.
AssociatedClass::AssociatedClass(Selection& selection)
    : cls(selection.cls),
      alias(selection.alias),
      condition(nullptr),
      sortOrders(selection.sortOrders),
      modelLives(selection.modelLives) {
    if (selection.frozen != nullptr && selection.frozen->condition != nullptr) {
        condition = selection.frozen->condition->getNew();
    } else if (selection.condition == nullptr && selection.given != nullptr &&
               selection.state == nullptr) {
        condition = selection.given->getNew();
    } else {
        const bool isNested = selection.state == nullptr && selection.condition != nullptr;
        Condition* copy = isNested ? selection.condition->getNew() : nullptr;
        condition = selection.condition;
        selection.setCondition(nullptr);
        selection.given = copy;
    }
}

AssociatedClass::AssociatedClass(const AssociatedClass& other, Condition* itsCondition)
    : cls(other.cls),
      alias(other.alias),
      condition(itsCondition),
      sortOrders(other.sortOrders),
      modelLives(other.modelLives) {}

AssociatedClass::AssociatedClass(const AssociatedClass& other) : AssociatedClass(other, nullptr) {
    ConditionTree::copy(condition, other.condition);
}

AssociatedClass::~AssociatedClass() {
    ConditionTree::destroy(condition);
}

}  // namespace Kes
