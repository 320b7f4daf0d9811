// Where a catalogue is read from.

#pragma once

#include <istream>
#include <memory>
#include <string>

namespace packages {

/// An open catalogue.
struct CatalogueSource {
    std::string description;  ///< for people
    std::unique_ptr<std::istream> input;
};

/// Opens a file, or the standard input for "-". An empty name stands for the
/// machine's own catalogue: what `apt-cache dumpavail` prints, or else the
/// packages that are installed. Throws std::runtime_error.
CatalogueSource openCatalogue(const std::string& fileName);

}  // namespace packages
