// The figures of a catalogue.

#pragma once

#include <ostream>

#include "packages/PackageModel.h"

namespace packages {

/// Writes the report. Equal catalogues give equal reports, whichever database
/// holds them: ties are broken by name, and nothing tells the time.
void writeReport(PackageModel& model, std::ostream& out);

}  // namespace packages
