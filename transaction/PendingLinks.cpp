#include "transaction/PendingLinks.h"

#include <vector>

#include <kes/Association.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/OneAssociatedInstance.h>

#include "object/Links.h"
#include "transaction/ReferenceJournal.h"

namespace Kes {

namespace {

void applyOwnLinks(Changes& changes, Instance* owner, ManyAssociatedInstances& ref,
                   const Association* association, const String& role) {
    for (; changes.links.covered < changes.pending.size(); ++changes.links.covered) {
        const Action& action = changes.pending[changes.links.covered];
        if (action.second == nullptr)
            continue;
        changes.links.note(action.first, changes.links.covered);
        changes.links.note(action.second, changes.links.covered);
    }
    const std::vector<std::size_t>* own = changes.links.find(owner);
    if (own == nullptr)
        return;
    const bool ownerIsOne = role == association->getOneRole();
    for (const std::size_t position : *own) {
        const Action& action = changes.pending[position];
        if (action.association != association)
            continue;
        const bool ownerIsFirst = action.first == owner && action.firstIsOne == ownerIsOne;
        if (!ownerIsFirst && !(action.second == owner && action.firstIsOne != ownerIsOne))
            continue;
        Instance* partner = ownerIsFirst ? action.second : action.first;
        const bool link = action.kind == Action::Link;
        if (ref.contains(partner) == link)
            continue;
        rememberMember(changes, owner, ref, partner, link);
        if (link)
            ref.add(partner);
        else
            ref.remove(partner);
    }
}

// Replacing a partner records the new link only: who left the owner, be it in
// this very transaction, shows by the member's own reference.
void dropMovedMembers(Changes& changes, Instance* owner, ManyAssociatedInstances& ref,
                      const Association* association, const String& role) {
    const String& otherRole = association->getAssociatedRole(role);
    if (association->getPluralityFor(otherRole) != Association::One)
        return;
    std::vector<Instance*> moved;
    RoleReader back(association->getName(), otherRole);
    for (ref.reset(); ref.next();) {
        Instance* member = ref.value();
        if (!InstanceState::isLinked(member))
            continue;
        back.read(member);
        if (back.one != nullptr && back.one->isFetched() && back.one->getInstance() != owner)
            moved.push_back(member);
    }
    for (Instance* member : moved) {
        rememberMember(changes, owner, ref, member, false);
        ref.remove(member);
    }
}

}  // namespace

void applyPendingLinks(Changes& changes, Instance* owner, ManyAssociatedInstances& ref,
                       const Association* association, const String& role) {
    if (changes.pending.empty())
        return;
    if (InstanceState::isLinked(owner))
        applyOwnLinks(changes, owner, ref, association, role);
    dropMovedMembers(changes, owner, ref, association, role);
}

}  // namespace Kes
