#include "transaction/LinkOutcome.h"

#include <kes/Association.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "object/Links.h"
#include "object/ModelGate.h"
#include "object/Plurality.h"
#include "object/ReferenceState.h"
#include "transaction/ReferenceJournal.h"

namespace Kes {

namespace {

const String& roleOf(const Association* association, bool isOneRole) {
    return isOneRole ? association->getOneRole() : association->getOtherRole();
}

}  // namespace

LinkOutcome::LinkOutcome(const Model* itsModel, const Changes& itsChanges)
    : model(itsModel),
      changes(itsChanges) {
    if (!changes.contested)
        return;
    for (const Remembered& entry : changes.journal) {
        if (entry.kind != Remembered::One || !entry.isFirst)
            continue;
        unsigned long before = entry.objectID;
        if (entry.fetched)
            before = entry.instance != nullptr ? entry.instance->getObjectID() : 0;
        seats[static_cast<OneAssociatedInstance*>(entry.ref)] = {entry.owner, entry.association,
                                                                 entry.ownerIsOne, before, before};
    }
    for (const Action& action : changes.pending)
        if (action.second != nullptr)
            apply(action);
}

// Removed objects are referred to by nobody.
unsigned long LinkOutcome::living(unsigned long partner) const {
    const Instance* known = partner != 0 ? ModelGate::objects(model).get(partner) : nullptr;
    return known != nullptr && known->isRemoved() ? 0 : partner;
}

unsigned long LinkOutcome::partnerOf(const Remembered& entry) const {
    auto* ref = static_cast<OneAssociatedInstance*>(entry.ref);
    if (const auto seat = seats.find(ref); seat != seats.end())
        return living(seat->second.partner);
    const Instance* held = ref->isFetched() ? ref->getInstance() : nullptr;
    if (held != nullptr)
        return held->isRemoved() ? 0 : held->getObjectID();
    return ref->isFetched() ? 0 : living(ref->getObjectID());
}

// A reference that no operation of Instance has touched shows what was stored.
LinkOutcome::Seat* LinkOutcome::seatOf(Instance* owner, const Association* association,
                                       const String& role) {
    RoleReader reader(association->getName(), role);
    reader.read(owner);
    if (reader.one == nullptr)
        return nullptr;
    const auto known = seats.find(reader.one);
    if (known != seats.end())
        return &known->second;
    const unsigned long shown = ReferenceState::partnerOf(*reader.one);
    const Seat fresh{owner, association, role == association->getOneRole(), shown, shown};
    return &seats.emplace(reader.one, fresh).first->second;
}

// What the driver makes of the call.
void LinkOutcome::apply(const Action& action) {
    const Association* association = action.association;
    const String& firstRole = roleOf(association, action.firstIsOne);
    const String& secondRole = association->getAssociatedRole(firstRole);
    Instance* first = action.first;
    Instance* second = action.second;
    Seat* one = isOne(association, firstRole) ? seatOf(first, association, firstRole) : nullptr;
    Seat* other =
        isOne(association, secondRole) ? seatOf(second, association, secondRole) : nullptr;
    if (action.kind == Action::Link) {
        if (one != nullptr)
            move(*one, second->getObjectID());
        if (other != nullptr)
            move(*other, first->getObjectID());
        return;
    }
    const bool isLost = changes.isDropped(first) || changes.isDropped(second);
    if (one != nullptr && (isLost || one->partner == second->getObjectID()))
        move(*one, 0);
    if (other != nullptr && (isLost || other->partner == first->getObjectID()))
        move(*other, 0);
}

// A pair is one pair: who loses the partner, loses it on its own side too. Seats
// stay where they are when others are added.
void LinkOutcome::move(Seat& seat, unsigned long partner) {
    const unsigned long left = seat.partner;
    seat.partner = partner;
    const String& role = roleOf(seat.association, seat.ownerIsOne);
    const String& otherRole = seat.association->getAssociatedRole(role);
    if (left == 0 || left == partner || !isOne(seat.association, otherRole))
        return;
    Instance* former = ModelGate::objects(model).get(left);
    Seat* side = former != nullptr ? seatOf(former, seat.association, otherRole) : nullptr;
    if (side != nullptr && side->partner == seat.owner->getObjectID())
        side->partner = 0;
}

void LinkOutcome::compare(Repairs& repairs) const {
    const auto compareOne = [&](OneAssociatedInstance* ref, unsigned long partner) {
        const Instance* held = ref->isFetched() ? ref->getInstance() : nullptr;
        if (ReferenceState::partnerOf(*ref) != partner || (held != nullptr && held->isRemoved()))
            repairs.ones.push_back({ref, partner});
    };
    if (!changes.contested) {
        for (const Remembered& entry : changes.journal)
            if (entry.kind == Remembered::One && entry.isFirst && !entry.owner->isRemoved())
                compareOne(static_cast<OneAssociatedInstance*>(entry.ref), partnerOf(entry));
        return;
    }
    for (const auto& [ref, seat] : seats)
        if (!seat.owner->isRemoved())
            compareOne(ref, living(seat.partner));
    compareMembers(repairs);
}

// The collections of all who had a member, have it now, or had it between.
void LinkOutcome::compareMembers(Repairs& repairs) const {
    for (const auto& [ref, seat] : seats)
        for (const unsigned long id : {seat.before, seat.partner})
            if (Instance* owner = id != 0 ? ModelGate::objects(model).get(id) : nullptr)
                compareMember(owner, seat, repairs);
    for (const Action& action : changes.pending) {
        if (action.second == nullptr)
            continue;
        const String& firstRole = roleOf(action.association, action.firstIsOne);
        const bool memberIsFirst = isOne(action.association, firstRole);
        RoleReader reader(
            action.association->getName(),
            memberIsFirst ? firstRole : action.association->getAssociatedRole(firstRole));
        reader.read(memberIsFirst ? action.first : action.second);
        const auto seat = reader.one != nullptr ? seats.find(reader.one) : seats.end();
        if (seat != seats.end())
            compareMember(memberIsFirst ? action.second : action.first, seat->second, repairs);
    }
}

void LinkOutcome::compareMember(Instance* owner, const Seat& seat, Repairs& repairs) const {
    const String& memberRole = roleOf(seat.association, seat.ownerIsOne);
    RoleReader reader(seat.association->getName(), seat.association->getAssociatedRole(memberRole));
    reader.read(owner);
    if (owner->isRemoved() || reader.many == nullptr || !reader.many->isFetched())
        return;
    const bool belongs = !seat.owner->isRemoved() && living(seat.partner) == owner->getObjectID();
    if (reader.many->contains(seat.owner) != belongs)
        repairs.members.push_back({reader.many, seat.owner, belongs});
}

void Repairs::apply() const noexcept {
    for (const One& each : ones) {
        each.ref->setFetched(false);
        each.ref->setObjectID(each.partner);
    }
    for (const Member& each : members) {
        if (!each.belongs) {
            each.ref->remove(each.member);
            continue;
        }
        addOrUnfetch(*each.ref, each.member);
    }
}

}  // namespace Kes
