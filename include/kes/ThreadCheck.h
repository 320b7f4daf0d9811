// Thread confinement.
//
// A model's own data is never locked. It belongs to one thread, and a
// ThreadCheck catches the caller that breaks the rule.

#pragma once

#include <atomic>
#include <cstdint>

#include <kes/Export.h>

namespace Kes {

/// Confines an object and everything reached from it to one thread.
///
/// It detects misuse and does not arbitrate: what two threads do with the object
/// before one of them fails is not undone.
class KES_EXPORT ThreadCheck {
public:
    /// Makes the first calling thread the owner and lets it pass ever after.
    ///
    /// Any other thread raises MTERR (FATAL). If the exception handler returns
    /// instead of throwing, the process ends with exit status 1.
    void doit();

    /// Forgets the owner; the next thread to call doit() becomes it.
    void reset();

private:
    // The platform's thread id, 0 while unowned. Nothing is published through it;
    // it is atomic because those who break the rule come at the same time.
    std::atomic<std::uint32_t> owner{0};
};

}  // namespace Kes
