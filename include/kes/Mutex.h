// The library's lock.

#pragma once

#include <mutex>

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// A recursive lock: its holder may claim it again and releases it as often.
///
/// Prefer a MutexGuard, which also releases when an exception passes.
class KES_EXPORT Mutex {
public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    /// Blocks, with no time limit, until the calling thread holds the lock.
    void claim();

    /// Gives back one claim. Only the holder may call it.
    void release();

private:
    std::recursive_mutex lock;
};

/// Holds a Mutex for the life of a scope.
class KES_EXPORT MutexGuard {
public:
    /// Claims `m`, which is borrowed and has to outlive the guard.
    explicit MutexGuard(Mutex& m);
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;
    virtual ~MutexGuard();

private:
    Mutex* mutex;  // never null
};

}  // namespace Kes
