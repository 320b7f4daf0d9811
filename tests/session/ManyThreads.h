// Work that several threads do at once.

#pragma once

#include <exception>
#include <latch>
#include <thread>
#include <vector>

namespace Kes::testing {

/// Runs work(0) to work(count - 1), each on a thread of its own, from the same
/// moment on. What one of them throws is thrown here.
template <class Work>
void onThreads(int count, Work work) {
    std::latch start(count);
    std::vector<std::exception_ptr> thrown(static_cast<std::size_t>(count));
    std::vector<std::thread> threads;
    for (int number = 0; number < count; ++number)
        threads.emplace_back([&, number] {
            start.arrive_and_wait();
            try {
                work(number);
            } catch (...) {
                thrown[static_cast<std::size_t>(number)] = std::current_exception();
            }
        });
    for (std::thread& thread : threads)
        thread.join();
    for (const std::exception_ptr& each : thrown)
        if (each != nullptr)
            std::rethrow_exception(each);
}

}  // namespace Kes::testing
