// What the recording driver was asked, and when it shall fail.

#pragma once

#include <string>
#include <vector>

#include <kes/Export.h>
#include <kes/Failure.h>
#include <kes/String.h>

namespace Kes::testing {

/// Shared by the tests and the recording driver, which is loaded by name.
class KES_EXPORT Recording {
public:
    static Recording& get();

    /// Forgets the log and all wishes.
    void reset();

    /// The n-th call from now fails (n from 1), or with `slot` the n-th call of
    /// that slot; with `fromThenOn` all later ones too.
    void failAt(long n, const std::string& slot = "", bool fromThenOn = false);
    void throwInsteadOfFailing(bool on) { throwing = on; }

    /// A commit that fails has been stored, and its answer is lost.
    void storeWhatFails(bool on) { storing = on; }
    bool storesWhatFails() const { return storing; }

    /// Of the failures that it was told to have.
    FailureKind kind = FailureKind::Unclassified;

    /// Called by the driver: notes the call and tells whether it shall fail.
    bool enter(const std::string& slot, const std::string& details);

    /// The same for calls that are neither noted nor counted: they fail only
    /// when their slot is the wished one.
    bool enterUnnoted(const std::string& slot);

    long callCount() const { return calls; }
    bool hasFailed() const { return failed; }

    /// The noted calls of the slots, or of all, as "slot details".
    std::vector<std::string> log;
    std::vector<std::string> only(const std::string& slot) const;

    /// As the driver was given it with the last open.
    String password;

private:
    bool isWished();

    long calls = 0;
    long matching = 0;
    long wish = 0;
    std::string wishedSlot;
    bool goesOn = false;
    bool throwing = false;
    bool storing = false;
    bool failed = false;
};

}  // namespace Kes::testing
