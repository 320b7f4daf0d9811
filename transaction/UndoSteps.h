// What a commit has done, as steps of the undo log.

#pragma once

#include <vector>

#include <kes/Forward.h>

#include "transaction/Changes.h"
#include "transaction/History.h"
#include "transaction/LinkOutcome.h"

namespace Kes {

std::vector<Step> writeSteps(const Model* model, const Changes& changes,
                             const LinkOutcome& outcome);

}  // namespace Kes
