// Conditions whose partner is gone.
//
// A condition keeps its partner by a pointer, which the model empties when it is
// closed. Drivers would take it for a test for no partner at all: the selection
// that is about to translate it has to know.

#pragma once

#include <cstdint>

namespace Kes {

class EmptiedTests {
public:
    static void note() { ++myNoted; }

    /// Whether this thread has translated one since.
    bool haveBeenMet() const { return myNoted != before; }

private:
    static inline constinit thread_local std::uint64_t myNoted = 0;

    std::uint64_t before = myNoted;
};

}  // namespace Kes
