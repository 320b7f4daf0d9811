// Tells whether two states of a catalogue are the same.

#pragma once

#include <cstdint>

#include "packages/PackageModel.h"

namespace packages {

/// What version 1 of the model stores, summed up. The order in which a database
/// delivers objects and links makes no difference.
struct Digest {
    long objects = 0;
    long links = 0;
    std::uint64_t fields = 0;
    std::uint64_t partners = 0;

    bool operator==(const Digest&) const = default;
};

/// Reads every object and every link of the catalogue.
Digest digestOf(PackageModel& model);

}  // namespace packages
