// Copying and destroying trees of conditions.
//
// Programs join and nest conditions in loops, so that a tree may be as deep as it is
// large. Neither costs stack, however deep it is.

#pragma once

#include <kes/Condition.h>

namespace Kes {

class AssociatedClass;

class ConditionTree {
public:
    /// Copies the source, null for null, to `target`. Its owner has what is copied at
    /// once, and frees it when memory runs out.
    static void copy(Condition*& target, const Condition* source);

    /// Needs no memory. Null does nothing.
    static void destroy(Condition* tree);

private:
    static ManyAssociatedCondition* copyOfTest(const ManyAssociatedCondition& test);
    static Condition** nestedIn(const Condition& condition);
};

}  // namespace Kes
