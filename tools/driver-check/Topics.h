// The topics of the suite, one source file each.

#pragma once

#include "Check.h"

namespace Kes::check {

void addSlotChecks(Suite& suite);
void addValueChecks(Suite& suite);
void addInheritanceChecks(Suite& suite);
void addConditionChecks(Suite& suite);
void addTreeChecks(Suite& suite);
void addOrderChecks(Suite& suite);
void addAssociationChecks(Suite& suite);
void addUpgradeChecks(Suite& suite);
void addStructureUpgradeChecks(Suite& suite);
void addNameChecks(Suite& suite);
void addModelChecks(Suite& suite);
void addTransactionChecks(Suite& suite);
void addConflictChecks(Suite& suite);
void addLinkConflictChecks(Suite& suite);
void addCursorChecks(Suite& suite);

}  // namespace Kes::check
