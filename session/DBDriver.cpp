#include <kes/DBDriver.h>

namespace Kes {

SelectionDefinition::~SelectionDefinition() = default;
DBDriverSelection::~DBDriverSelection() = default;
DBDriver::~DBDriver() = default;

void DBDriver::reserved() {}

}  // namespace Kes
