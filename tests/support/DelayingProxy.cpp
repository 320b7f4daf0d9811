#include "tests/support/DelayingProxy.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <list>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace Kes::testing {

namespace {

using Clock = std::chrono::steady_clock;

sockaddr_in loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

/// A descriptor that is closed in the end.
class Socket {
public:
    explicit Socket(int itsHandle) : handle(itsHandle) {
        if (handle < 0)
            throw std::runtime_error("no socket");
    }
    Socket(Socket&& other) noexcept : handle(std::exchange(other.handle, -1)) {}
    Socket& operator=(Socket&&) = delete;
    ~Socket() {
        if (handle >= 0)
            ::close(handle);
    }
    int get() const { return handle; }

private:
    int handle;
};

Socket listenAnywhere() {
    Socket listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback(0);
    if (::bind(listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener.get(), 16) != 0)
        throw std::runtime_error("cannot listen");
    return listener;
}

Socket connectTo(int port) {
    Socket server(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_in address = loopback(port);
    if (::connect(server.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        throw std::runtime_error("cannot connect to the server");
    return server;
}

void prepare(const Socket& socket) {
    const int on = 1;
    ::setsockopt(socket.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    ::fcntl(socket.get(), F_SETFL, O_NONBLOCK);
}

/// Bytes on their way from one socket to another.
class Stream {
public:
    void put(const char* bytes, std::size_t size, Clock::time_point due) {
        if (!pieces.empty() && pieces.back().due == due)
            pieces.back().bytes.append(bytes, size);
        else
            pieces.push_back({std::string(bytes, size), due});
    }

    bool isDue() const { return !pieces.empty() && pieces.front().due <= Clock::now(); }
    std::optional<Clock::time_point> nextDue() const {
        if (pieces.empty())
            return std::nullopt;
        return pieces.front().due;
    }

    /// False when the other end is gone.
    bool sendDue(int to) {
        while (isDue()) {
            std::string& bytes = pieces.front().bytes;
            const ssize_t sent = ::send(to, bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (sent < 0)
                return errno == EAGAIN || errno == EINTR;
            bytes.erase(0, static_cast<std::size_t>(sent));
            if (bytes.empty())
                pieces.pop_front();
        }
        return true;
    }

private:
    struct Piece {
        std::string bytes;
        Clock::time_point due;
    };
    std::deque<Piece> pieces;
};

struct Pair {
    Socket client;
    Socket server;
    Stream toServer;
    Stream toClient;
    std::string tail;       // the end of what the client sent, to find texts in
    bool isAsking = false;  // the client has sent, and the server has not answered since
    bool hasServerGone = false;
    bool isLost = false;
    bool isMute = false;                // what the server says is not handed on
    std::optional<std::size_t> left{};  // bytes of answers to hand on before it is lost
};

/// What happens to the connection whose client sends a text.
struct Fate {
    enum Kind { CutBefore, CutAfter, CutWithin, Swallow };

    std::string text;  // empty: nothing happens
    Kind kind = CutBefore;
    std::size_t bytes = 0;  // of the answer, that are handed on first
};

}  // namespace

class DelayingProxy::Traffic {
public:
    Traffic(int serverPort, Delay itsDelay, Watcher itsWatch)
        : target(serverPort),
          delay(itsDelay),
          watch(std::move(itsWatch)) {
        if (::pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0)
            throw std::runtime_error("no pipe");
    }
    ~Traffic() {
        ::close(wake[0]);
        ::close(wake[1]);
    }

    int port() const {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        ::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &size);
        return ntohs(address.sin_port);
    }

    void command(const std::function<void()>& change) {
        {
            const std::lock_guard guard(mutex);
            change();
        }
        const ssize_t ignored = ::write(wake[1], "", 1);
        static_cast<void>(ignored);
    }

    bool isCutting() {
        const std::lock_guard guard(mutex);
        return cutsNow;
    }

    void mute() {
        for (Pair& pair : pairs)
            pair.isMute = true;
    }

    void run() {
        while (!isEnding) {
            std::vector<pollfd> polled = wait();
            const std::lock_guard guard(mutex);
            takeCommands();
            if ((polled[1].revents & POLLIN) != 0)
                accept();
            for (Pair& pair : pairs)
                handOn(pair);
            pairs.remove_if([](const Pair& pair) { return pair.isLost; });
        }
    }

    std::atomic<bool> isEnding = false;
    std::atomic<long> answers = 0;
    bool cutsNow = false;
    Fate fate;
    Rewriter rewrite;

private:
    std::vector<pollfd> wait() {
        std::vector<pollfd> polled{{wake[0], POLLIN, 0}, {listener.get(), POLLIN, 0}};
        std::optional<Clock::time_point> next;
        for (const Pair& pair : pairs) {
            for (const auto& [stream, to] : {std::pair(&pair.toServer, pair.server.get()),
                                             std::pair(&pair.toClient, pair.client.get())}) {
                const bool isFull = stream->isDue();
                polled.push_back({to, static_cast<short>(isFull ? POLLIN | POLLOUT : POLLIN), 0});
                const auto due = stream->nextDue();
                if (due.has_value() && !isFull && (!next.has_value() || *due < *next))
                    next = due;
            }
        }
        timespec limit{1, 0};
        if (next.has_value()) {
            const auto left = std::max(*next - Clock::now(), Clock::duration::zero());
            limit = {0, std::chrono::duration_cast<std::chrono::nanoseconds>(left).count()};
        }
        ::ppoll(polled.data(), polled.size(), &limit, nullptr);
        return polled;
    }

    void takeCommands() {
        char bytes[64];
        while (::read(wake[0], bytes, sizeof bytes) > 0)
            continue;
        if (std::exchange(cutsNow, false))
            pairs.clear();
    }

    // Nobody answers where the server does not: the client's connection ends.
    void accept() {
        Socket client(::accept(listener.get(), nullptr, nullptr));
        try {
            Socket server = connectTo(target);
            prepare(client);
            prepare(server);
            pairs.push_back({std::move(client), std::move(server), {}, {}, {}});
        } catch (const std::runtime_error&) {
            return;
        }
    }

    void handOn(Pair& pair) {
        char bytes[65536];
        for (ssize_t size; (size = ::recv(pair.client.get(), bytes, sizeof bytes, 0)) >= 0;) {
            if (size == 0)
                return lose(pair);
            if (!heard(pair, bytes, static_cast<std::size_t>(size)))
                return;
            pair.isAsking = true;
            pair.toServer.put(bytes, static_cast<std::size_t>(size), Clock::now() + delay);
        }
        for (ssize_t size; (size = ::recv(pair.server.get(), bytes, sizeof bytes, 0)) >= 0;) {
            if (size == 0) {
                pair.hasServerGone = true;
                break;
            }
            if (std::exchange(pair.isAsking, false))
                ++answers;
            if (!answered(pair, std::string(bytes, static_cast<std::size_t>(size))))
                return;
        }
        if (!pair.toServer.sendDue(pair.server.get()) || !pair.toClient.sendDue(pair.client.get()))
            lose(pair);
        if (pair.hasServerGone && !pair.toClient.nextDue().has_value())
            lose(pair);
    }

    static void lose(Pair& pair) { pair.isLost = true; }

    // False when the connection is lost over it.
    bool answered(Pair& pair, std::string bytes) {
        if (pair.isMute)
            return true;
        if (rewrite)
            rewrite(bytes);
        const bool isLast = pair.left.has_value() && *pair.left <= bytes.size();
        if (isLast)
            bytes.resize(*pair.left);
        if (pair.left.has_value())
            *pair.left -= bytes.size();
        pair.toClient.put(bytes.data(), bytes.size(), Clock::now() + (isLast ? Delay(0) : delay));
        if (!isLast)
            return true;
        pair.toClient.sendDue(pair.client.get());
        lose(pair);
        return false;
    }

    // False when the connection is lost over it.
    bool heard(Pair& pair, const char* bytes, std::size_t size) {
        if (watch)
            watch(bytes, size);
        if (fate.text.empty())
            return true;
        pair.tail.append(bytes, size);
        if (pair.tail.find(fate.text) == std::string::npos) {
            if (pair.tail.size() > fate.text.size())
                pair.tail.erase(0, pair.tail.size() - fate.text.size());
            return true;
        }
        return meets(pair, std::exchange(fate, Fate()), bytes, size);
    }

    bool meets(Pair& pair, const Fate& met, const char* bytes, std::size_t size) {
        switch (met.kind) {
        case Fate::Swallow: pair.isMute = true; return true;
        case Fate::CutWithin: pair.left = met.bytes; return true;
        case Fate::CutAfter:
            pair.toServer.put(bytes, size, Clock::now());
            pair.toServer.sendDue(pair.server.get());
            break;
        case Fate::CutBefore: break;
        }
        lose(pair);
        return false;
    }

    int target;
    Delay delay;
    Watcher watch;
    Socket listener = listenAnywhere();
    int wake[2] = {-1, -1};
    std::mutex mutex;
    std::list<Pair> pairs;
};

DelayingProxy::DelayingProxy(int port, Delay delay, Watcher watch)
    : traffic(std::make_unique<Traffic>(port, delay, std::move(watch))),
      thread([this] { traffic->run(); }) {}

DelayingProxy::~DelayingProxy() {
    traffic->command([this] { traffic->isEnding = true; });
    thread.join();
}

int DelayingProxy::port() const {
    return traffic->port();
}

long DelayingProxy::roundTrips() const {
    return traffic->answers;
}

void DelayingProxy::cut() {
    traffic->command([this] { traffic->cutsNow = true; });
    while (traffic->isCutting())
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

void DelayingProxy::cutBefore(const std::string& text) {
    traffic->command([&] { traffic->fate = {text, Fate::CutBefore}; });
}

void DelayingProxy::cutAfter(const std::string& text) {
    traffic->command([&] { traffic->fate = {text, Fate::CutAfter}; });
}

void DelayingProxy::cutWithinAnswer(const std::string& text, std::size_t bytes) {
    traffic->command([&] { traffic->fate = {text, Fate::CutWithin, bytes}; });
}

void DelayingProxy::swallowAnswer(const std::string& text) {
    traffic->command([&] { traffic->fate = {text, Fate::Swallow}; });
}

void DelayingProxy::swallowAnswers() {
    traffic->command([this] { traffic->mute(); });
}

void DelayingProxy::rewriteAnswers(Rewriter rewrite) {
    traffic->command([&] { traffic->rewrite = std::move(rewrite); });
}

}  // namespace Kes::testing
