// What the recording driver was asked, and when it shall fail.

#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include <kes/Export.h>
#include <kes/String.h>

#include "tools/faulty/Faults.h"

namespace Kes::testing {

/// Shared by the tests and the recording driver, which is loaded by name.
///
/// Not all calls are counted: one that is asked for a version or for a trace, that
/// a cursor is asked or that only asks for words fails when its slot is the wished
/// one, and those of the last two kinds are not noted either.
class KES_EXPORT Recording final : public faulty::Faults {
public:
    static Recording& get();

    /// The source to open where the driver shall have no database: it knows the
    /// versions that it is told, numbers objects, finds no rows and does nothing
    /// else. Each driver begins with nothing. Other sources are those of SQLite.
    static constexpr const char* NoDatabase = "no database";

    /// Forgets the log and all wishes.
    void reset();

    /// The n-th call from now fails (n from 1), or with `slot` the n-th call of
    /// that slot; with `fromThenOn` all later ones too.
    void failAt(long n, const std::string& slot = "", bool fromThenOn = false);
    void throwInsteadOfFailing(bool on) { throwing = on; }

    /// A commit that fails has been stored, and its answer is lost.
    void storeWhatFails(bool on) { storing = on; }

    /// Of the failures that it was told to have.
    FailureKind kind = FailureKind::Unclassified;

    /// What a driver without a database knows when it is opened: of models and
    /// classes, by name.
    std::map<std::string, int> versions;

    /// The ids of objects that a refresh finds removed by somebody else.
    std::set<unsigned long> removedElsewhere;

    long callCount() const { return calls; }
    bool hasFailed() const { return failed; }

    /// The noted calls of the slots, or of all, as "slot details".
    std::vector<std::string> log;
    std::vector<std::string> only(const std::string& slot) const;

    /// As the driver was given them with the last open.
    String password;
    String user;
    String options;

    bool isDue(const std::string& slot, const std::string& details) override;
    bool strike(const std::string& slot, bool mayThrow) override;
    bool strikesAfter() const override { return storing; }
    std::string describe(const std::string& slot) const override;
    FailureKind getKind() const override { return kind; }

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
