// A file layer below SQLite that fails, is full, or is the last thing that the
// process does.
//
// It becomes SQLite's default layer when it is installed and passes everything
// on. Opens, writes, syncs, truncations and deletions count as operations; a
// fault falls on the one that it was set to.

#pragma once

#include <cstdint>

namespace Kes::testing {

class FaultyFiles {
public:
    enum Fault : std::uint8_t {
        Fails,  // an I/O error; a write gets only half through
        Full,   // there is no room for what is written; nothing else fails
        Kills   // the process, with half of the write done
    };

    /// Once per process.
    static void install();

    /// The fault falls on the operation `at`, counted from 1 from now on, and
    /// on all later ones if `goesOn`.
    static void set(Fault fault, unsigned long at, bool goesOn);

    /// No fault falls any more.
    static void clear();

    /// Operations since set() or clear().
    static unsigned long count();

    /// Whether a fault has fallen since set().
    static bool hasStruck();
};

}  // namespace Kes::testing
