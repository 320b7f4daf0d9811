// Telling a lookup that found nothing from one that failed.
//
// A failure deep in a query is raised where it happens. When the exception
// handler returns, whoever asked gets the same answer as for an empty result,
// and must not take it for the truth. When the handler throws, and somebody on the
// way turns what it threw into a false flag, the failure must not be told again.

#pragma once

#include <cstdint>
#include <exception>

namespace Kes {

/// The errors, warnings excepted, that were raised on this thread so far.
std::uint64_t errorsRaised();

/// Whether an error was raised since it was made.
class ErrorWatch {
public:
    bool hasFailed() const { return errorsRaised() != before; }

private:
    std::uint64_t before = errorsRaised();
};

/// Keeps what the exception handler throws on this thread while it lives. They
/// nest; the innermost one keeps it.
class HandlerWatch {
public:
    HandlerWatch();
    HandlerWatch(const HandlerWatch&) = delete;
    HandlerWatch& operator=(const HandlerWatch&) = delete;
    ~HandlerWatch();

    /// The last thing that it threw; null when it threw nothing.
    const std::exception_ptr& getThrown() const { return thrown; }

private:
    friend class Exception;

    HandlerWatch* outer;
    std::exception_ptr thrown;
};

/// While it lives, errors that are raised on this thread are thrown and no
/// handler hears of them, for what is tried and may well fail. FATAL ones and
/// warnings take their usual way.
class ErrorSilence {
public:
    ErrorSilence();
    ErrorSilence(const ErrorSilence&) = delete;
    ErrorSilence& operator=(const ErrorSilence&) = delete;
    ~ErrorSilence();
};

}  // namespace Kes
