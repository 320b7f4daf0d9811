// The part of the transaction manager that deals with links.

#include <algorithm>
#include <map>
#include <memory>
#include <set>

#include <kes/Association.h>
#include <kes/DBDriver.h>
#include <kes/Instance.h>
#include <kes/LinkReader.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Selection.h>

#include "identity/ObjectCache.h"
#include "object/InstanceState.h"
#include "object/Links.h"
#include "object/ModelGate.h"
#include "object/ReferenceState.h"
#include "transaction/UnitOfWork.h"

namespace Kes {

void UnitOfWork::recordLink(Action::Kind kind, Instance* first, const String& firstRole,
                            Instance* second, Association* association) {
    Action& action = record(kind, first);
    action.second = second;
    action.association = association;
    action.firstIsOne = firstRole == association->getOneRole();
    InstanceState::setLinked(first);
    InstanceState::setLinked(second);
    InstanceState::setAhead(second, false);
}

void UnitOfWork::noteUnchangedLink(const Instance* first, const Instance* second) {
    if (!pending.empty() && pending.back().first == first && pending.back().second == second)
        pending.back().changedNothing = true;
}

void UnitOfWork::noteUnsureLink(const Instance* first, const Instance* second) {
    if (!pending.empty() && pending.back().first == first && pending.back().second == second)
        pending.back().isUnsure = true;
}

void UnitOfWork::rememberReference(Instance* owner, OneAssociatedInstance& ref,
                                   const Association* association, const String& role) {
    Remembered entry{};
    entry.kind = Remembered::One;
    entry.fetched = ref.isFetched();
    entry.isFirst = !ReferenceState::isTouched(ref);
    entry.ownerIsOne = role == association->getOneRole();
    entry.owner = owner;
    entry.ref = &ref;
    entry.instance = ref.isFetched() ? ref.getInstance() : nullptr;
    entry.objectID = ref.getObjectID();
    entry.association = association;
    journal.push_back(entry);
    ReferenceState::setTouched(ref, true);
}

void UnitOfWork::rememberMember(Instance* owner, ManyAssociatedInstances& ref, Instance* member,
                                bool added) {
    Remembered entry{};
    entry.kind = added ? Remembered::MemberAdded : Remembered::MemberRemoved;
    entry.fetched = true;
    entry.owner = owner;
    entry.ref = &ref;
    entry.instance = member;
    journal.push_back(entry);
}

void UnitOfWork::rememberLostLink(Instance* owner, Instance* member, Association* association,
                                  const String& role) {
    Remembered entry{};
    entry.kind = Remembered::LostLink;
    entry.ownerIsOne = role == association->getOneRole();
    entry.owner = owner;
    entry.instance = member;
    entry.association = association;
    journal.push_back(entry);
}

// The row that holds a one-reference belongs to `first`. Its version is raised
// once in a commit: by the instance's own action where there is one, otherwise
// by the first link.
bool UnitOfWork::applyLink(Action& action, const DriverDoor::Passage& driver) {
    Instance* first = action.first;
    Instance* second = action.second;
    action.secondVersion = second->getVersion();

    // A partner that never came to be stored leaves an empty reference.
    Action::Kind kind = action.kind;
    if (isDropped(first) || isDropped(second))
        kind = Action::Unlink;
    Association* association = action.association;
    const String& oneRole = association->getOneRole();
    const String& firstRole = action.firstIsOne ? oneRole : association->getOtherRole();
    const String& secondRole = association->getAssociatedRole(firstRole);
    const bool holdsRow = association->getPluralityFor(firstRole) == Association::One;
    const bool secondHoldsRow = association->getPluralityFor(secondRole) == Association::One;
    if ((isDropped(first) && (isDropped(second) || !secondHoldsRow)) ||
        (isDropped(second) && !holdsRow))
        return true;
    const bool linkFlag =
        holdsRow && (InstanceState::entry(first) != 0 || InstanceState::isRaised(first));
    if (holdsRow && !linkFlag) {
        first->nextVersion();
        InstanceState::setRaised(first);
    }
    return kind == Action::Link
               ? driver->addLink(first, firstRole, second, secondRole, association, linkFlag)
               : driver->removeLink(first, firstRole, second, secondRole, association, linkFlag);
}

void UnitOfWork::revertReferences() {
    for (auto entry = journal.rbegin(); entry != journal.rend(); ++entry) {
        if (entry->kind == Remembered::One) {
            auto* ref = static_cast<OneAssociatedInstance*>(entry->ref);
            ref->setFetched(entry->fetched);
            ref->setInstance(entry->instance);
            ref->setObjectID(entry->objectID);
            continue;
        }
        if (entry->kind == Remembered::LostLink)
            continue;
        auto* ref = static_cast<ManyAssociatedInstances*>(entry->ref);
        if (!ref->isFetched())
            continue;
        if (entry->kind == Remembered::MemberAdded)
            ref->remove(entry->instance);
        else if (!ref->contains(entry->instance))
            ref->add(entry->instance);
    }
}

void UnitOfWork::unfetchCollections() {
    for (const Remembered& entry : journal) {
        if (entry.kind != Remembered::MemberAdded && entry.kind != Remembered::MemberRemoved)
            continue;
        auto* ref = static_cast<ManyAssociatedInstances*>(entry.ref);
        ref->clear();
        ref->setFetched(false);
    }
}

void UnitOfWork::applyPendingLinks(Instance* owner, ManyAssociatedInstances& ref,
                                   const Association* association, const String& role) {
    if (pending.empty())
        return;
    if (InstanceState::isLinked(owner))
        applyOwnLinks(owner, ref, association, role);
    dropMovedMembers(owner, ref, association, role);
}

void UnitOfWork::applyOwnLinks(Instance* owner, ManyAssociatedInstances& ref,
                               const Association* association, const String& role) {
    for (; links.covered < pending.size(); ++links.covered) {
        const Action& action = pending[links.covered];
        if (action.second == nullptr)
            continue;
        links.note(action.first, links.covered);
        links.note(action.second, links.covered);
    }
    const std::vector<std::size_t>* own = links.find(owner);
    if (own == nullptr)
        return;
    const bool ownerIsOne = role == association->getOneRole();
    for (const std::size_t position : *own) {
        const Action& action = pending[position];
        if (action.association != association)
            continue;
        const bool ownerIsFirst = action.first == owner && action.firstIsOne == ownerIsOne;
        if (!ownerIsFirst && !(action.second == owner && action.firstIsOne != ownerIsOne))
            continue;
        Instance* partner = ownerIsFirst ? action.second : action.first;
        const bool link = action.kind == Action::Link;
        if (ref.contains(partner) == link)
            continue;
        rememberMember(owner, ref, partner, link);
        if (link)
            ref.add(partner);
        else
            ref.remove(partner);
    }
}

// Replacing a partner records the new link only: who left the owner, be it in
// this very transaction, shows by the member's own reference.
void UnitOfWork::dropMovedMembers(Instance* owner, ManyAssociatedInstances& ref,
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
        rememberMember(owner, ref, member, false);
        ref.remove(member);
    }
}

void UnitOfWork::listenTo(DBDriver* driver) {
    auto* emptying = dynamic_cast<EmptyingDriver*>(driver);
    hearsOfEmptied = emptying != nullptr && emptying->tellEmptiedTo(this);
}

void UnitOfWork::stopListening(DBDriver* driver) {
    if (hearsOfEmptied)
        dynamic_cast<EmptyingDriver*>(driver)->tellEmptiedTo(nullptr);
    hearsOfEmptied = false;
}

// References that the transaction has touched are worked out anyway.
void UnitOfWork::referenceEmptied(Association* association, const String& role, unsigned long id,
                                  Class* cls, unsigned long partner, bool isRaised) {
    if (outcome == nullptr)
        return;
    RoleReader reader(association->getName(), role);
    if (Instance* owner = ModelGate::objects(model).get(id)) {
        if (isRaised) {
            raised.push_back({owner, owner->getVersion()});
            owner->nextVersion();
        }
        reader.read(owner);
    }
    if (reader.one != nullptr && ReferenceState::isTouched(*reader.one))
        return;
    if (reader.one != nullptr)
        outcome->repairs.push_back({reader.one, 0});
    if (!keepsSteps())
        return;
    Step step{};
    step.kind = Step::Pointed;
    step.isTold = true;
    step.id = id;
    step.cls = cls;
    step.association = association;
    step.firstIsOne = role == association->getOneRole();
    step.other = partner;
    noteStep(step);
}

// Objects that the application is going through keep their places: a collection
// loses the one member and is not read again.
void UnitOfWork::repair(const Outcome& left) noexcept {
    for (const Repair& each : left.repairs) {
        each.ref->setFetched(false);
        each.ref->setObjectID(each.partner);
    }
    for (const MemberRepair& each : left.memberRepairs) {
        if (!each.belongs) {
            each.ref->remove(each.member);
            continue;
        }
        try {
            if (!each.ref->contains(each.member))
                each.ref->add(each.member);
        } catch (...) {
            each.ref->setFetched(false);
        }
    }
}

namespace {

using Pair = std::pair<unsigned long, unsigned long>;

// Of the many-to-many association, by whether the pairs' first ids play its first
// role.
struct Asked {
    std::vector<unsigned long> owners;
    std::set<Pair> stored;
    bool isKnown = false;
};

}  // namespace

// To take back what dissolved a link that was not there is to do nothing. Where
// no collection in memory told, the driver does, and tells it of many at once.
void UnitOfWork::askForUnsureLinks() {
    using Key = std::pair<Association*, bool>;
    std::map<Key, Asked> asked;
    if (!keepsSteps())
        return;
    for (const Action& action : pending)
        if (action.isUnsure && action.kind == Action::Unlink && !isNew(action.first) &&
            !isNew(action.second))
            asked[{action.association, action.firstIsOne}].owners.push_back(
                action.first->getObjectID());
    if (asked.empty())
        return;
    for (auto& [key, each] : asked) {
        std::sort(each.owners.begin(), each.owners.end());
        each.owners.erase(std::unique(each.owners.begin(), each.owners.end()), each.owners.end());
        const String& role = key.second ? key.first->getOneRole() : key.first->getOtherRole();
        std::vector<StoredLink> found;
        const std::size_t most = 1000 + 64 * each.owners.size();
        auto* reader = door().find<LinkReader>();
        const DriverDoor::Passage asking = door().enter();
        each.isKnown =
            reader != nullptr && reader->readLinks(key.first, role, each.owners, most, found);
        for (const StoredLink& link : found)
            each.stored.emplace(link.owner, link.member);
    }
    for (Action& action : pending) {
        const auto known = action.second != nullptr
                               ? asked.find({action.association, action.firstIsOne})
                               : asked.end();
        if (known == asked.end() ||
            !std::binary_search(known->second.owners.begin(), known->second.owners.end(),
                                action.first->getObjectID()))
            continue;
        std::set<Pair>& stored = known->second.stored;
        const Pair pair(action.first->getObjectID(), action.second->getObjectID());
        if (action.kind == Action::Link)
            stored.insert(pair);
        else if (known->second.isKnown)
            action.changedNothing = stored.erase(pair) == 0;
        else if (action.isUnsure)
            action.changedNothing = !isLinked(action);
    }
}

// With a query for the one pair.
bool UnitOfWork::isLinked(const Action& action) const {
    Association* association = action.association;
    const String& role =
        action.firstIsOne ? association->getOneRole() : association->getOtherRole();
    const String& otherRole = association->getAssociatedRole(role);
    Class* cls = association->getClassFor(otherRole);
    auto isMember = std::make_unique<OneAssociatedCondition>(
        new Role(cls, otherRole, association), Condition::AssociationOperator::EQUAL, action.first);
    auto isSecond = std::make_unique<AttributeCondition<unsigned long>>(
        new Attribute(cls, "KesObjectID"), Condition::EQUAL, action.second->getObjectID());
    Selection selection(cls);
    selection.setCondition(
        new CombinationCondition(isMember.release(), Condition::AND, isSecond.release()));
    return selection.next();
}

}  // namespace Kes
