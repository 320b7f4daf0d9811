#include <kes/ThreadCheck.h>

#include <kes/Exception.h>

#include "core/FatalEnd.h"
#include "core/Platform.h"

namespace Kes {

namespace {

constexpr std::uint32_t Breached = 1U << 31;

Exception foreignThread() {
    return {Exception::FATAL, "MTERR", "ThreadCheck::doit",
            "You used your model in two different thread. That is illegal"};
}

Exception foreignProcess() {
    return {Exception::FATAL, "FORKERR", "ThreadCheck::doit",
            "The model was opened by the process that this one was forked from, and its "
            "connection is that one's; open a model of its own in each process"};
}

}  // namespace

void ThreadCheck::doit() {
    const std::uint32_t caller = platform::currentThreadId();
    std::uint32_t known = owner.load(std::memory_order_relaxed);
    if (known == caller)
        return;
    if (known == 0 && owner.compare_exchange_strong(known, caller, std::memory_order_relaxed))
        return;
    fail(known, caller);
}

void ThreadCheck::verify() {
    const std::uint32_t caller = platform::currentThreadId();
    const std::uint32_t known = owner.load(std::memory_order_relaxed);
    if (known != caller && known != 0)
        fail(known, caller);
}

void ThreadCheck::fail(std::uint32_t known, std::uint32_t caller) {
    // The owner hears of it once and may go on.
    if (known == (caller | Breached))
        owner.store(caller, std::memory_order_relaxed);
    Exception error = isInherited() ? foreignProcess() : foreignThread();
    error.handle();

    // The handler chose to go on, but a second thread inside a model can leave
    // its object cache and the database disagreeing. Stopping is the safe end.
    endProcess();
}

void ThreadCheck::note() noexcept {
    const std::uint32_t known = owner.load(std::memory_order_relaxed);
    const bool isOwn = known == 0 || (known & ~Breached) == platform::currentThreadId();
    if (isOwn || isInherited() || (known & Breached) != 0)
        return;
    owner.fetch_or(Breached, std::memory_order_relaxed);
    try {
        foreignThread().handle();
    } catch (...) {
        return;
    }
    endProcess();
}

bool ThreadCheck::isInherited() const {
    const std::uint32_t known = owner.load(std::memory_order_relaxed) & ~Breached;
    return known != 0 && platform::isFromBeforeFork(known);
}

void ThreadCheck::reset() {
    owner.store(0, std::memory_order_relaxed);
}

}  // namespace Kes
