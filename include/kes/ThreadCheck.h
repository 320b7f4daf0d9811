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
    /// Any other thread raises MTERR (FATAL), and any thread of a process that
    /// was forked from the owner's FORKERR (FATAL). If the exception handler
    /// returns instead of throwing, the process ends with exit status 1.
    void doit();

    /// As doit, but leaves an unowned check unowned.
    void verify();

    /// For destructors, which cannot raise: tells the exception handler of
    /// another thread, and lets the owner's next call raise MTERR when that
    /// throws. In the child of a fork it does nothing.
    void note() noexcept;

    /// Whether the owner is a thread of a process that this one was forked from.
    bool isInherited() const;

    /// Forgets the owner; the next thread to call doit() becomes it.
    void reset();

private:
    void fail(std::uint32_t known, std::uint32_t caller);

    // The platform's thread id, 0 while unowned, and a bit for a breach that the
    // owner has to hear of. Nothing is published through it; it is atomic because
    // those who break the rule come at the same time.
    std::atomic<std::uint32_t> owner{0};
};

}  // namespace Kes
