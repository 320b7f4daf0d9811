// What a FaultyDriver asks at each of its calls.

#pragma once

#include <string>

#include <kes/Failure.h>

namespace Kes::faulty {

/// Notes the calls of a driver and chooses those that a fault falls on; this one
/// chooses none.
class Faults {
public:
    Faults() = default;
    Faults(const Faults&) = default;
    Faults& operator=(const Faults&) = default;
    virtual ~Faults() = default;

    /// Notes a call; true when a fault falls on it.
    virtual bool isDue(const std::string& /*slot*/, const std::string& /*details*/) {
        return false;
    }

    /// Lets the fault happen, which throws only if `mayThrow`. True when the call
    /// has to fail.
    virtual bool strike(const std::string& /*slot*/, bool /*mayThrow*/) { return true; }

    /// Whether the real driver does its work first.
    virtual bool strikesAfter() const { return false; }

    /// The words for a call that was made to fail, and what kind of failure it is.
    virtual std::string describe(const std::string& slot) const { return slot; }
    virtual FailureKind getKind() const { return FailureKind::Unclassified; }
};

}  // namespace Kes::faulty
