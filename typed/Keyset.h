// Going on behind an object.

#pragma once

#include <vector>

#include <kes/Field.h>

#include "typed/PredicateNode.h"

namespace Kes {

/// What holds of the objects that come behind the one, in the order of the keys
/// and then of the ids.
ConditionPtr conditionBehind(const PredicateScope& scope, const std::vector<SortKeyData>& keys,
                             Instance* object);

/// Raises Error (Misuse) for null, and for an object of another session.
void requirePlace(const Session& session, const Instance* object);

}  // namespace Kes
