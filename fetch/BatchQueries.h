// Conditions for many objects at once.

#pragma once

#include <memory>
#include <vector>

#include <kes/Condition.h>

namespace Kes {

/// True where one of the parts is, of which there is one at least. Joined
/// pairwise, so that the tree stays shallow.
std::unique_ptr<Condition> joinAny(std::vector<std::unique_ptr<Condition>> parts);

/// The objects of the class with these ids.
std::unique_ptr<Condition> anyOf(Class* cls, const std::vector<unsigned long>& ids);

}  // namespace Kes
