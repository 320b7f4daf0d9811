#include <kes/Mutex.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>
#include <type_traits>

namespace Kes {
namespace {

using std::chrono::milliseconds;

// Whether another thread gets hold of the mutex within the time. It always gets
// it in the end: the caller releases before the future is left.
std::future<void> claimElsewhere(Mutex& mutex) {
    return std::async(std::launch::async, [&mutex] { const MutexGuard guard(mutex); });
}

bool isDone(const std::future<void>& work, milliseconds patience) {
    return work.wait_for(patience) == std::future_status::ready;
}

TEST(MutexTest, IsClaimedAgainByItsHolder) {
    Mutex mutex;

    mutex.claim();
    mutex.claim();
    mutex.release();
    const std::future<void> other = claimElsewhere(mutex);

    EXPECT_FALSE(isDone(other, milliseconds(50)));
    mutex.release();
    EXPECT_TRUE(isDone(other, milliseconds(10000)));
}

TEST(MutexTest, CountsUpUnharmedByManyThreads) {
    Mutex mutex;
    int count = 0;
    const auto work = [&] {
        for (int i = 0; i < 10000; ++i) {
            const MutexGuard guard(mutex);
            ++count;
        }
    };

    std::thread one(work);
    std::thread two(work);
    one.join();
    two.join();

    EXPECT_EQ(count, 20000);
}

TEST(MutexTest, IsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Mutex>);
    EXPECT_FALSE(std::is_copy_constructible_v<MutexGuard>);
}

TEST(MutexGuardTest, HoldsTheMutexForItsScope) {
    Mutex mutex;
    std::future<void> other;
    {
        const MutexGuard guard(mutex);
        other = claimElsewhere(mutex);
        EXPECT_FALSE(isDone(other, milliseconds(50)));
    }

    EXPECT_TRUE(isDone(other, milliseconds(10000)));
}

TEST(MutexGuardTest, ReleasesWhenAnExceptionPasses) {
    Mutex mutex;
    const auto work = [&] {
        const MutexGuard guard(mutex);
        throw std::runtime_error("passes");
    };

    EXPECT_THROW(work(), std::runtime_error);

    EXPECT_TRUE(isDone(claimElsewhere(mutex), milliseconds(10000)));
}

}  // namespace
}  // namespace Kes
