// A process of its own that reports what it does, and may be killed.

#pragma once

#include <sys/types.h>

#include <chrono>
#include <concepts>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

namespace Kes::testing {

class Child {
public:
    /// Sends a line to the parent; it is there even if the process is killed
    /// right after the call.
    using Report = std::function<void(const std::string&)>;
    using Time = std::chrono::microseconds;

    /// Starts the process, which ends with status 0 when the body returns, and with
    /// 1 when that throws or returns false. What was thrown it reports as "error
    /// WORDS". A database that the parent has open is not to be used there.
    template <std::invocable<const Report&> Body>
    explicit Child(const Body& body) {
        start([&body](const Report& report) {
            if constexpr (std::is_void_v<std::invoke_result_t<const Body&, const Report&>>) {
                body(report);
                return true;
            } else {
                return static_cast<bool>(body(report));
            }
        });
    }
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child();

    /// Listens until there are that many lines with the first word. False when
    /// the process ended before, or the time is over.
    bool awaitLines(const std::string& firstWord, std::size_t count,
                    Time most = std::chrono::seconds(60));

    /// Listens for that time, or until the process ends.
    void listen(Time time);

    /// Kills the process, as `kill -9` does, and hears what it still reported.
    void kill();

    /// The status with which the process ended; -1 when a signal ended it or
    /// it had to be killed because the time was over.
    int awaitEnd(Time most = std::chrono::seconds(60));

    /// Whether it ends with status 0 in that time.
    bool succeeds(Time most = std::chrono::minutes(10)) { return awaitEnd(most) == 0; }

    /// All lines that it has reported, with line feeds between them, when it has
    /// ended, which it is given that time for.
    std::string says(Time most = std::chrono::minutes(10));

    /// The last of the reported lines with the first word, without it; "" when
    /// there is none.
    std::string last(const std::string& firstWord) const;

    std::vector<std::string> lines;

private:
    void start(const std::function<bool(const Report&)>& body);
    bool hear(Time most);
    void reap();

    pid_t process = -1;
    int pipe = -1;
    int status = 0;
    std::string partial;  // of a line
};

/// The first word of a line.
std::string firstWordOf(const std::string& line);

/// The numbers in a text, which blanks separate.
std::vector<unsigned long> numbersIn(const std::string& text);

}  // namespace Kes::testing
