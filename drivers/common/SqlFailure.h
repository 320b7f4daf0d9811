// How the parts of a driver tell each other of a failure.

#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

#include <kes/Failure.h>

namespace Kes::sql {

/// Thrown inside a driver and turned into a false flag at its slots. The text
/// is what the user reads, the kind is for the program.
class SqlFailure : public std::runtime_error {
public:
    explicit SqlFailure(const std::string& text, FailureKind itsKind = FailureKind::Unclassified)
        : std::runtime_error(text),
          kind(itsKind) {}

    const FailureKind kind;
};

/// Tells which posted write failed.
class PostFailure : public SqlFailure {
public:
    PostFailure(std::size_t itsTicket, const std::string& words, std::size_t before = 0,
                FailureKind itsKind = FailureKind::Unclassified)
        : SqlFailure(words, itsKind),
          ticket(itsTicket),
          rowsBefore(before) {}

    /// The write failed as `cause` says.
    PostFailure(std::size_t itsTicket, const SqlFailure& cause, std::size_t before = 0)
        : PostFailure(itsTicket, cause.what(), before, cause.kind) {}

    /// The write touched fewer rows than it had to.
    explicit PostFailure(std::size_t itsTicket)
        : SqlFailure("too few rows were written", FailureKind::Conflict),
          ticket(itsTicket),
          isStale(true) {}

    const std::size_t ticket;
    const std::size_t rowsBefore = 0;  // of its own, which were not refused
    const bool isStale = false;
};

/// What fails in `work` failed as the write of that ticket.
template <class Work>
void postAs(std::size_t ticket, Work work) {
    try {
        work();
    } catch (const PostFailure&) {
        throw;
    } catch (const SqlFailure& failure) {
        throw PostFailure(ticket, failure);
    }
}

}  // namespace Kes::sql
