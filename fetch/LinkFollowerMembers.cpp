// The part of LinkFollower that deals with the collections of many-to-many
// associations.

#include <algorithm>
#include <utility>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>

#include "fetch/LinkFollower.h"
#include "identity/ObjectCache.h"
#include "object/Links.h"
#include "object/ReferenceState.h"

namespace Kes {

namespace {

// Two texts may be equal; the association's own tells them apart.
const String* ownText(const Association* association, const String& role) {
    return &association->getAssociatedRole(association->getAssociatedRole(role));
}

// Without an iteration that the application may have under way.
bool canBeScanned(const ManyAssociatedInstances& ref) {
    return dynamic_cast<const ManyReference*>(&ref) != nullptr;
}

}  // namespace

// From the first one on, those that show its possible owners are noted.
void LinkFollower::noteCollections(const Association* association, const String& role) {
    const String* own = ownText(association, role);
    bool& wasLoaded = shown[own];
    if (wasLoaded)
        return;
    noteShown(association, own);
    wasLoaded = true;
}

void LinkFollower::noteShown(const Association* association, const String* role) {
    const String* opposite = &association->getAssociatedRole(*role);
    if (association->getPluralityFor(*opposite) == Association::One || !isShown(opposite))
        return;
    const Class* cls = association->getClassFor(*opposite);
    RoleReader field(association->getName(), *opposite);
    objects->forEach([&](Instance* each) {
        if (!each->getClass()->isA(cls))
            return;
        field.read(each);
        const auto* many = dynamic_cast<const ManyReference*>(field.many);
        if (many == nullptr || !many->isFetched())
            return;
        for (const Instance* member : ReferenceState::members(*many))
            if (member != nullptr)
                rememberShower(member, role, each->getObjectID());
    });
}

void LinkFollower::noteMember(const Instance* owner, const ManyAssociatedInstances& ref,
                              const Instance* member, const Association* association,
                              const String& role) {
    const String* opposite = &association->getAssociatedRole(role);
    if (isLoaded(opposite) || !canBeScanned(ref))
        rememberShower(member, opposite, owner->getObjectID());
}

// Who shows it again and again is remembered once or twice.
void LinkFollower::rememberShower(const Instance* member, const String* role, unsigned long id) {
    std::vector<unsigned long>& ids = former[CollectionKey(member->getObjectID(), role)];
    if (ids.size() == ids.capacity()) {
        std::sort(ids.begin(), ids.end());
        ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
        ids.reserve(2 * ids.size() + 1);
    }
    ids.push_back(id);
    dropFreed();
}

void LinkFollower::rememberMembers(Instance* owner, ManyAssociatedInstances& ref,
                                   const Association* association, const String& role) {
    if (!ref.isFetched())
        return;
    const String* own = ownText(association, role);
    for (const End& end : endsOf(owner->getClass()).manies)
        if (end.role == own && hasShownSides(end))
            rememberMembers(owner, own, DroppedPartners::idsOf(ref));
}

void LinkFollower::rememberMembers(Instance* owner, const String* role,
                                   std::vector<unsigned long>&& ids) {
    former.insert_or_assign(CollectionKey(owner->getObjectID(), role), std::move(ids));
    dropFreed();
}

// Owners that were freed are forgotten now and then.
void LinkFollower::dropFreed() {
    if (former.size() < mostFormer)
        return;
    std::erase_if(former,
                  [&](const auto& entry) { return objects->get(entry.first.first) == nullptr; });
    mostFormer = 2 * former.size() + 1024;
}

void LinkFollower::followMembers(Instance* owner, ManyAssociatedInstances& ref,
                                 const Association* association, const String& role) {
    const String& opposite = association->getAssociatedRole(role);
    if (association->getPluralityFor(opposite) == Association::One)
        return;
    const bool isNoted = isLoaded(&opposite) || !canBeScanned(ref);
    if (!isNoted && !isShown(&opposite))
        return;
    RoleReader back(association->getName(), opposite);
    for (ref.reset(); ref.next();) {
        back.read(ref.value());
        if (back.many == nullptr || back.many == &ref)
            continue;
        if (!back.many->isFetched()) {
            if (isNoted)
                rememberShower(ref.value(), &opposite, owner->getObjectID());
        } else if (!back.many->contains(owner)) {
            back.many->add(owner);
        }
    }
    const auto entry = former.find(CollectionKey(owner->getObjectID(), ownText(association, role)));
    if (entry == former.end())
        return;
    for (const unsigned long id : entry->second) {
        Instance* member = objects->get(id);
        if (member == nullptr || ref.contains(member))
            continue;
        back.read(member);
        if (back.many != nullptr && back.many != &ref && back.many->isFetched())
            back.many->remove(owner);
    }
    former.erase(entry);
}

bool LinkFollower::isContradicted(Instance* owner, ManyAssociatedInstances& ref,
                                  const Association* association, const String& role) const {
    const String& opposite = association->getAssociatedRole(role);
    if (association->getPluralityFor(opposite) == Association::One || !isShown(&opposite))
        return false;
    RoleReader back(association->getName(), opposite);
    const auto shows = [&](Instance* other, bool isShowing) {
        back.read(other);
        return back.many != nullptr && back.many != &ref && back.many->isFetched() &&
               back.many->contains(owner) == isShowing;
    };
    for (ref.reset(); ref.next();)
        if (shows(ref.value(), false)) {
            ref.reset();
            return true;
        }
    const auto entry = former.find(CollectionKey(owner->getObjectID(), ownText(association, role)));
    return entry != former.end() &&
           std::any_of(entry->second.begin(), entry->second.end(), [&](unsigned long id) {
               Instance* other = objects->get(id);
               return other != nullptr && !ref.contains(other) && shows(other, true);
           });
}

}  // namespace Kes
