// What shall go wrong, and at which call.

#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tools/faulty/Faults.h"

namespace Kes::faulty {

/// The wrapping driver's own options.
struct FaultSettings {
    enum Kind : std::uint8_t { Fail, Throw, Delay, Kill };

    std::string driver;       // the real one
    std::string realOptions;  // what is left for it
    Kind kind = Fail;
    std::string slot;            // only calls of this slot count; "" for all
    unsigned long at = 0;        // from 1; 0 for never
    bool goesOn = false;         // all later calls too
    bool after = false;          // when the real driver has done its work
    unsigned long delay = 1000;  // milliseconds
    std::string run;             // drivers of the same run count together
    std::string log;             // a file that every call is added to

    /// Takes what begins with "faulty." out of an option text. Throws
    /// std::invalid_argument with words for the user.
    static FaultSettings parse(const std::string& options);
};

/// Faults as the options of a driver name them.
class FaultPlan final : public Faults {
public:
    explicit FaultPlan(const FaultSettings& wanted) : settings(wanted) {}

    /// The plan of a named run, which all drivers of the process share and
    /// whose first settings hold; without a name a new plan.
    static std::shared_ptr<FaultPlan> find(const FaultSettings& wanted);

    bool isDue(const std::string& slot, const std::string& details) override;

    /// Kills the process, waits, throws std::runtime_error or does nothing else.
    bool strike(const std::string& slot, bool mayThrow) override;

    bool strikesAfter() const override { return settings.after; }
    std::string describe(const std::string& slot) const override;

private:
    void note(const std::string& slot, const std::string& details, bool due) const;

    FaultSettings settings;
    unsigned long calls = 0;     // of all slots
    unsigned long matching = 0;  // of those that count
};

}  // namespace Kes::faulty
