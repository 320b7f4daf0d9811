#include "core/FatalEnd.h"

#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "core/Platform.h"

namespace Kes {

void endProcess() {
    // A thread that waits with the stream in hand, maybe for a reader that never
    // comes, must not keep the process alive.
    if (platform::claimOutput()) {
        std::cout.flush();
        std::clog.flush();
        std::fflush(stdout);
    }
    std::_Exit(1);
}

}  // namespace Kes
