#include <kes/ThreadCheck.h>

#include <kes/Exception.h>

#include "core/FatalEnd.h"
#include "core/Platform.h"

namespace Kes {

void ThreadCheck::doit() {
    const std::uint32_t caller = platform::currentThreadId();
    std::uint32_t known = owner.load(std::memory_order_relaxed);
    if (known == 0 && owner.compare_exchange_strong(known, caller, std::memory_order_relaxed))
        return;
    if (known == caller)
        return;

    Exception error(Exception::FATAL, "MTERR", "ThreadCheck::doit",
                    "You used your model in two different thread. That is illegal");
    error.handle();

    // The handler chose to go on, but a second thread inside a model can leave
    // its object cache and the database disagreeing. Stopping is the safe end.
    endProcess();
}

void ThreadCheck::reset() {
    owner.store(0, std::memory_order_relaxed);
}

}  // namespace Kes
