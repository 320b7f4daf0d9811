// A stretch of network between a program and a server on this machine.

#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace Kes::testing {

/// Listens on a free port of 127.0.0.1 and hands on what it hears, both ways,
/// each piece a fixed time later than it came. It can lose connections at a
/// chosen moment, keep answers back and change them, and knows no protocol. One
/// thread of its own does the work.
class DelayingProxy {
public:
    using Delay = std::chrono::microseconds;
    using Watcher = std::function<void(const char* bytes, std::size_t size)>;

    /// Changes a piece of what a server says, which may end anywhere.
    using Rewriter = std::function<void(std::string& bytes)>;

    /// `port` is the server's, on 127.0.0.1. `watch` hears all that clients send,
    /// in the proxy's thread.
    explicit DelayingProxy(int port, Delay delay = Delay(0), Watcher watch = nullptr);
    DelayingProxy(const DelayingProxy&) = delete;
    DelayingProxy& operator=(const DelayingProxy&) = delete;
    ~DelayingProxy();

    int port() const;

    /// How often a server has begun to answer what its client had sent. Where a
    /// client sends on while answers come, that depends on the moment.
    long roundTrips() const;

    /// Loses all connections, and returns when they are lost.
    void cut();

    /// Loses a connection when its client next sends the text, with the piece
    /// that the text ends in. From then on the proxy is as before.
    void cutBefore(const std::string& text);

    /// The same, but the server hears the text; its answer is lost.
    void cutAfter(const std::string& text);

    /// The same, when so many bytes of what the server sends from then on have
    /// been handed on.
    void cutWithinAnswer(const std::string& text, std::size_t bytes);

    /// Hands on nothing more of what the server says from the moment at which the
    /// client next sends the text. The connection stays up.
    void swallowAnswer(const std::string& text);

    /// The same for the connections that there are, from now on: where nobody can
    /// read what the client sends. Returns when it is so.
    void swallowAnswers();

    /// Each piece that a server sends goes through `rewrite`, in the proxy's
    /// thread; null ends that.
    void rewriteAnswers(Rewriter rewrite);

private:
    class Traffic;

    std::unique_ptr<Traffic> traffic;
    std::thread thread;
};

}  // namespace Kes::testing
