// Where one-references lead once a transaction is stored.
//
// Memory mostly shows it. Where links contest a partner it may not, so these are
// worked off once more in the order in which they were recorded, each for its
// two instances only, beginning with what was stored before.

#pragma once

#include <unordered_map>
#include <vector>

#include <kes/Forward.h>

#include "transaction/Changes.h"

namespace Kes {

/// What references in memory have to show once the transaction is stored.
struct Repairs {
    struct One {
        OneAssociatedInstance* ref;
        unsigned long partner;
    };
    struct Member {
        ManyAssociatedInstances* ref;
        Instance* member;
        bool belongs;
    };
    std::vector<One> ones;
    std::vector<Member> members;

    /// Objects that the application is going through keep their places: a
    /// collection loses the one member and is not read again.
    void apply() const noexcept;
};

class LinkOutcome {
public:
    /// Both are borrowed.
    LinkOutcome(const Model* itsModel, const Changes& itsChanges);

    /// The id of the partner of a reference that the journal names; 0 for none.
    unsigned long partnerOf(const Remembered& entry) const;

    /// Enters the references in memory that show something else.
    void compare(Repairs& repairs) const;

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

    unsigned long living(unsigned long partner) const;
    Seat* seatOf(Instance* owner, const Association* association, const String& role);
    void apply(const Action& action);
    void move(Seat& seat, unsigned long partner);
    void compareMember(Instance* owner, const Seat& seat, Repairs& repairs) const;
    void compareMembers(Repairs& repairs) const;

    const Model* model;
    const Changes& changes;
    Seats seats;  // none unless links contest a partner
};

}  // namespace Kes
