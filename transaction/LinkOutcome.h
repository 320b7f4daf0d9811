// Where one-references lead once a transaction is stored.
//
// Memory mostly shows it. Where links contest a partner it may not, so these are
// worked off once more in the order in which they were recorded, each for its
// two instances only, beginning with what was stored before.

#pragma once

#include <unordered_map>

#include "transaction/UnitOfWork.h"

namespace Kes {

class UnitOfWork::LinkOutcome {
public:
    explicit LinkOutcome(const UnitOfWork& source);

    /// The id of the partner of a reference that the journal names; 0 for none.
    unsigned long partnerOf(const Remembered& entry) const;

    /// Enters the references in memory that show something else.
    void compare(Outcome& left) const;

private:
    // One reference.
    struct Seat {
        Instance* owner;
        const Association* association;
        bool ownerIsOne;
        unsigned long before;
        unsigned long partner;
    };
    using Seats = std::unordered_map<OneAssociatedInstance*, Seat>;

    static unsigned long shownBy(OneAssociatedInstance& ref);
    unsigned long living(unsigned long partner) const;
    Seat* seatOf(Instance* owner, const Association* association, const String& role);
    void apply(const Action& action);
    void move(Seat& seat, unsigned long partner);
    void compareMember(Instance* owner, const Seat& seat, Outcome& left) const;
    void compareMembers(Outcome& left) const;

    const UnitOfWork& manager;
    Seats seats;  // none unless links contest a partner
};

}  // namespace Kes
