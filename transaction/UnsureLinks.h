// Links of which memory could not tell whether they were there.

#pragma once

#include <kes/Forward.h>

#include "transaction/Changes.h"

namespace Kes {

/// Asks the driver, of many at once, and notes those that change nothing. Needed
/// where the commit is going to be undone only.
void askForUnsureLinks(const Model* model, Changes& changes);

}  // namespace Kes
