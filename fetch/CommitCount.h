// Commits of the whole process, counted so that each model notices those of the
// others, whatever database and thread they belong to.

#pragma once

#include <atomic>
#include <cstdint>

namespace Kes {

class CommitCount {
public:
    /// Commits that have returned, with whatever outcome: from then on a program
    /// may know of them.
    static std::uint64_t finished() { return myFinished.load(std::memory_order_acquire); }

    /// Whether some commit may be stored, though nobody was told.
    static bool isAnyUnderWay() {
        return myBegun.load(std::memory_order_acquire) !=
               myFinished.load(std::memory_order_acquire);
    }

    /// A driver's commit, for as long as it lives.
    class Scope {
    public:
        Scope() { myBegun.fetch_add(1, std::memory_order_acq_rel); }
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;
        ~Scope() { myFinished.fetch_add(1, std::memory_order_acq_rel); }
    };

private:
    static inline std::atomic<std::uint64_t> myBegun{0};
    static inline std::atomic<std::uint64_t> myFinished{0};
};

}  // namespace Kes
