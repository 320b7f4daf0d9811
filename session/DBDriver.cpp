#include <kes/DBDriver.h>

#include <kes/Calculator.h>
#include <kes/EmptiedReferences.h>
#include <kes/Failure.h>
#include <kes/LinkReader.h>
#include <kes/SchemaReader.h>
#include <kes/Tabulator.h>

namespace Kes {

SelectionDefinition::~SelectionDefinition() = default;
DBDriverSelection::~DBDriverSelection() = default;
DBDriver::~DBDriver() = default;
EmptiedListener::~EmptiedListener() = default;
EmptyingDriver::~EmptyingDriver() = default;
Calculator::~Calculator() = default;
Tabulator::~Tabulator() = default;
TableReader::~TableReader() = default;
StoredKeys::~StoredKeys() = default;
LinkReader::~LinkReader() = default;
FailureReporter::~FailureReporter() = default;
SchemaReader::~SchemaReader() = default;

void DBDriver::reserved() {}

}  // namespace Kes
