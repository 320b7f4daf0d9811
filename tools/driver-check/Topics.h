// The topics of the suite, one source file each.

#pragma once

#include "Check.h"

namespace Kes::check {

void addValueChecks(Suite& suite);
void addAssociationChecks(Suite& suite);

}  // namespace Kes::check
