// A limit of time. A driver that waits for ever cannot be interrupted in any
// other way than by ending the process.

#pragma once

#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace Kes::check {

/// Calls what it was given, on a thread of its own, unless it is destroyed in
/// time.
class Watchdog {
public:
    Watchdog(int seconds, std::function<void()> late)
        : thread([this, seconds, tell = std::move(late)] {
              std::unique_lock<std::mutex> guard(mutex);
              if (!changed.wait_for(guard, std::chrono::seconds(seconds),
                                    [this] { return isDone; }))
                  tell();
          }) {}
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog() {
        {
            const std::lock_guard<std::mutex> guard(mutex);
            isDone = true;
        }
        changed.notify_one();
        thread.join();
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    bool isDone = false;
    std::thread thread;  // last, since it uses the others
};

}  // namespace Kes::check
