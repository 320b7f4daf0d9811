// Taking changes back in memory.

#pragma once

#include <kes/Forward.h>

#include "transaction/Changes.h"

namespace Kes {

class FirstFailure;

/// References, versions, fields and marks are as before the changes, newest
/// first. What objects throw meanwhile is collected.
void revert(const Model* model, const Changes& changes, FirstFailure& failure);

}  // namespace Kes
