// Telling a lookup that found nothing from one that failed.
//
// A failure deep in a query is raised where it happens. When the exception
// handler returns, whoever asked gets the same answer as for an empty result,
// and must not take it for the truth.

#pragma once

#include <cstdint>

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

}  // namespace Kes
