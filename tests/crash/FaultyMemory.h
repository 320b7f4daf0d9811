// Memory that runs out.

#pragma once

namespace Kes::testing {

class FaultyMemory {
public:
    /// The allocation `at`, counted from 1 from now on, fails, and all later
    /// ones too if `goesOn`.
    static void set(unsigned long at, bool goesOn);

    /// No allocation fails any more.
    static void clear();

    /// Whether one has failed since set().
    static bool hasStruck();

    /// How many pieces of memory the program has taken and not given back.
    static long live();
};

}  // namespace Kes::testing
