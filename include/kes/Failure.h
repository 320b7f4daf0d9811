// What kind of failure the database has met.

#pragma once

#include <cstdint>

#include <kes/Export.h>

namespace Kes {

/// What a program can do about a failure. More kinds may come, with further
/// numbers: a switch over them needs a default branch, which treats what it
/// does not know like Unclassified.
enum class FailureKind : std::int32_t {
    None = 0,            ///< Nothing has failed.
    Unclassified = 1,    ///< The message is all that there is.
    Conflict = 2,        ///< Somebody else came first: read again and try again.
    UnknownOutcome = 3,  ///< The commit may be stored or not: look before it is repeated.
    LostConnection = 4   ///< Nothing of it is stored: open the model again and try again.
};

/// What a driver may offer besides DBDriver. A driver object may derive from it
/// as well; a failure of one that does not is Unclassified.
///
/// The driver notes the kind of each failure that a slot answers with a false
/// flag, null or 0, and of each that it raises, a cursor's included, before it
/// raises it.
class KES_EXPORT FailureReporter {
public:
    virtual ~FailureReporter();

    /// Of the last failure since the last call of forgetFailure; None when there
    /// was none. UnknownOutcome is for DBDriver::commit alone. Does not throw.
    virtual FailureKind getFailureKind() const = 0;

    /// Something new begins, whose failures alone count. Does not throw.
    virtual void forgetFailure() = 0;
};

}  // namespace Kes
