// The connection to a server: libpq in pipeline mode.
//
// Commands are sent without waiting for one another, and their results come back
// in the same order. A sync closes a batch; when a command fails, the server
// skips what follows it in the batch. So a whole transaction costs as many round
// trips as somebody waits for an answer, however many statements it has.

#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "drivers/common/SqlFailure.h"
#include "drivers/postgres/PostgresSource.h"

struct pg_conn;
struct pg_result;

namespace Kes::sql {

struct FreeResult {
    void operator()(pg_result* result) const;
};
using Result = std::unique_ptr<pg_result, FreeResult>;

/// The connection broke. What became of the commands that were under way is
/// not known.
class ConnectionLost : public SqlFailure {
public:
    explicit ConnectionLost(const std::string& text)
        : SqlFailure(text, FailureKind::LostConnection) {}
};

/// The values of an execution in the binary form that the server reads.
struct WireValues {
    std::vector<unsigned> types;      // 0 leaves the type to the server
    std::vector<const char*> values;  // null for NULL; borrowed
    std::vector<int> sizes;           // bytes
};

/// A statement that the server keeps under a name.
struct Prepared {
    std::string name;
    std::vector<unsigned> types;
    unsigned long session = 0;  // in which it was made; 0 while it is not
};

class PostgresWire {
public:
    /// Whether a Courtesy is done matters to nobody, nor does its failure.
    enum class Wish : unsigned char { Nothing, Answer, Post, Prepare, Sync, Courtesy };

    /// What becomes of a command's result.
    struct Purpose {
        Wish wish = Wish::Nothing;
        std::size_t ticket = 0;   // of posted writes
        long least = 0;           // rows that a posted write has to touch
        std::string traced = {};  // empty when the trace does not show it
        bool isPosted = false;    // fails like a posted write
    };

    /// Connects. Throws SqlFailure with what the user can do about it.
    PostgresWire(const PostgresSource& source, const PostgresLimits& itsLimits);
    PostgresWire(const PostgresWire&) = delete;
    PostgresWire& operator=(const PostgresWire&) = delete;
    ~PostgresWire();

    /// These send and do not wait; the values are copied. They throw
    /// ConnectionLost.
    void prepare(const std::shared_ptr<Prepared>& prepared, const std::string& text,
                 const Purpose& purpose);
    bool has(const Prepared& prepared) const { return prepared.session == session; }
    void execute(const Prepared& prepared, const WireValues& values, Purpose purpose);
    void execute(const std::string& text, Purpose purpose);
    void execute(const std::string& text, const WireValues& values, Purpose purpose);

    /// Closes the batch.
    void sync();

    /// Closes it if anything has been sent in it.
    void endBatch();

    /// Waits for the results of all that is under way. What failed is told by the
    /// next receive().
    void settle();

    /// Closes the batch, waits for all results and returns the wanted one, null
    /// when there is none. Throws what failed first: a PostFailure for a posted
    /// write.
    Result receive();

    /// True when nothing is under way and no failure waits to be told.
    bool isSettled() const { return sent.empty() && !failure.has_value(); }

    /// Waits for all results and forgets how they failed.
    void drain() noexcept;

    /// Whether the server still answers; costs a round trip.
    bool isAlive();
    bool isLost() const { return lost; }

    /// The server's process, as it was told when the connection was made.
    int process() const;

    /// Why the server takes nothing more of the open transaction; empty when it
    /// does.
    const std::string& refusal() const { return refusalWords; }
    FailureKind refusalKind() const { return kindOfRefusal; }

    /// Whether the last commit was acknowledged before the standby had it that
    /// the server is set up to wait for.
    bool isUnreplicated() const { return unreplicated; }

    /// Connects again as before. Everything that was prepared is gone.
    void renew();

    bool isTracing() const { return trace != nullptr; }
    void traceTo(std::ostream* stream) { trace = stream; }

private:
    using Clock = std::chrono::steady_clock;

    struct Sent {
        Purpose purpose;
        std::shared_ptr<Prepared> prepared = nullptr;
        Clock::time_point start = {};
    };
    struct Failure {
        bool isPost;
        bool isStale;
        std::size_t ticket;
        std::string words;
        FailureKind kind;
    };

    void greet();
    void check() const;
    std::string explainRefusal() const;
    FailureKind kindOfRefusedOpen() const;
    std::string explain(const pg_result* result) const;
    std::string explainReadOnly(const std::string& words) const;
    FailureKind kindOf(const pg_result* result) const;
    void note(int done, Purpose&& purpose, std::size_t size,
              const std::shared_ptr<Prepared>& prepared = nullptr);
    void flush();
    bool await(bool toSend);
    Result next();
    void collect();
    static std::size_t sizeOf(const WireValues& values);
    static void hearNotice(void* wire, const pg_result* notice);
    void digest(Sent& command, Result result);
    void fail(const Purpose& purpose, bool isStale, const std::string& words,
              FailureKind kind = FailureKind::Unclassified);
    void writeTrace(const Sent& command);
    [[noreturn]] void lose(const std::string& words);
    void demandConnection() const;

    PostgresLimits limits;
    pg_conn* connection = nullptr;
    std::deque<Sent> sent;
    Result answer;
    std::optional<Failure> failure;  // the first of what was sent
    std::size_t unsent = 0;          // bytes that may wait in the client library, about
    std::string refusalWords;
    FailureKind kindOfRefusal = FailureKind::Unclassified;
    bool unreplicated = false;
    unsigned long session = 1;
    std::string lostWords;
    bool lost = false;
    std::ostream* trace = nullptr;  // borrowed
};

}  // namespace Kes::sql
