#include "fetch/LinkFollower.h"

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>

#include "identity/ObjectCache.h"
#include "object/Links.h"
#include "object/ReferenceState.h"

namespace Kes {

namespace {

void pointTo(OneAssociatedInstance& ref, unsigned long partner) {
    ref.setFetched(false);
    ref.setObjectID(partner);
}

}  // namespace

LinkFollower::Ends& LinkFollower::endsOf(const Class* cls) {
    if (cls == lastClass)
        return *lastEnds;
    const auto known = classes.find(cls);
    lastEnds = known != classes.end() ? &known->second
                                      : &classes.emplace(cls, findEnds(cls)).first->second;
    lastClass = cls;
    return *lastEnds;
}

LinkFollower::Ends LinkFollower::findEnds(const Class* cls) const {
    Ends found;
    for (const Association* association : model->getDeclaredAssociations()) {
        for (const String* role : {&association->getOneRole(), &association->getOtherRole()}) {
            const Class* reporting = association->getClassFor(*role);
            if (reporting == nullptr || !cls->isA(reporting))
                continue;
            const String* opposite = &association->getAssociatedRole(*role);
            const End end{association, role, opposite,
                          association->getPluralityFor(*opposite) == Association::One};
            if (association->getPluralityFor(*role) == Association::One)
                found.ones.push_back(end);
            else
                found.manies.push_back(end);
        }
    }
    return found;
}

bool LinkFollower::isLoaded(const String* role) const {
    const auto found = shown.find(role);
    return found != shown.end() && found->second;
}

void LinkFollower::onNewObject(const Class* cls) {
    Ends& ends = endsOf(cls);
    if (ends.isNew)
        return;
    for (const End& end : ends.manies)
        shown.emplace(end.role, false);
    ends.isNew = true;
}

void LinkFollower::follow(Instance* instance, const DroppedPartners& dropped,
                          const Association* filling) {
    for (const End& end : endsOf(instance->getClass()).ones) {
        if (end.association == filling && dropped.entries.empty())
            continue;
        if (end.isOppositeOne || isShown(end.opposite))
            follow(instance, end, dropped);
    }
    for (const DroppedPartners::Members& each : dropped.collections)
        for (const End& end : endsOf(instance->getClass()).manies) {
            RoleReader field(end.association->getName(), *end.role);
            if (hasShownSides(end))
                field.read(instance);
            if (field.many == each.ref)
                rememberMembers(instance, end.role, std::vector<unsigned long>(each.ids));
        }
}

// Members of one owner tell by their own rows.
bool LinkFollower::hasShownSides(const End& end) const {
    return !end.isOppositeOne && isShown(end.opposite);
}

void LinkFollower::follow(Instance* instance, const End& end, const DroppedPartners& dropped) {
    RoleReader field(end.association->getName(), *end.role);
    field.read(instance);
    if (field.one == nullptr || field.one->isFetched())
        return;
    const unsigned long partner = field.one->getObjectID();
    for (const DroppedPartners::Entry& entry : dropped.entries)
        if (entry.ref == field.one && entry.partner != partner)
            leave(instance, end, entry.partner);
    if (partner != 0)
        join(instance, end, partner);
}

void LinkFollower::join(Instance* instance, const End& end, unsigned long id) {
    Instance* partner = objects->get(id);
    if (partner == nullptr || partner->isRemoved())
        return;
    RoleReader back(end.association->getName(), *end.opposite);
    back.read(partner);
    if (back.many != nullptr && back.many->isFetched() && !back.many->contains(instance))
        back.many->add(instance);
    if (back.one != nullptr)
        pointBack(*back.one, partner, instance, end);
}

// Of two objects that refer to one another the one that was loaded is right, and
// whoever the other one referred to before has lost it.
void LinkFollower::pointBack(OneAssociatedInstance& ref, Instance* owner, Instance* partner,
                             const End& end) {
    const unsigned long before = ReferenceState::partnerOf(ref);
    if (before == partner->getObjectID() || ReferenceState::isTouched(ref))
        return;
    pointTo(ref, partner->getObjectID());
    if (before == 0)
        return;
    const End other{end.association, end.opposite, end.role, true};
    leave(owner, other, before);
}

void LinkFollower::leave(Instance* instance, const End& end, unsigned long id) {
    Instance* partner = objects->get(id);
    if (partner == nullptr)
        return;
    RoleReader back(end.association->getName(), *end.opposite);
    back.read(partner);
    if (back.many != nullptr && back.many->isFetched())
        back.many->remove(instance);
    if (back.one != nullptr && ReferenceState::partnerOf(*back.one) == instance->getObjectID() &&
        !ReferenceState::isTouched(*back.one))
        pointTo(*back.one, 0);
}

void LinkFollower::unfetchCollections(Instance* instance) {
    for (const End& end : endsOf(instance->getClass()).manies) {
        RoleReader field(end.association->getName(), *end.role);
        field.read(instance);
        if (field.many == nullptr || !field.many->isFetched())
            continue;
        if (hasShownSides(end))
            rememberMembers(instance, end.role, DroppedPartners::idsOf(*field.many));
        field.many->setFetched(false);
    }
}

void LinkFollower::leaveAll(Instance* instance) {
    const Ends& ends = endsOf(instance->getClass());
    for (const End& end : ends.ones) {
        RoleReader field(end.association->getName(), *end.role);
        field.read(instance);
        const unsigned long id = field.one != nullptr ? ReferenceState::partnerOf(*field.one) : 0;
        if (Instance* partner = id != 0 ? objects->get(id) : nullptr)
            release(partner, end, instance);
    }
    for (const End& end : ends.manies) {
        RoleReader field(end.association->getName(), *end.role);
        field.read(instance);
        if (field.many == nullptr || !field.many->isFetched())
            continue;
        std::vector<Instance*> members;
        for (field.many->reset(); field.many->next();)
            members.push_back(field.many->value());
        for (Instance* member : members)
            release(member, end, instance);
    }
}

// A one-reference keeps the id, as the row does that the partner was read with,
// and is read anew: it leads to nobody then.
void LinkFollower::release(Instance* partner, const End& end, Instance* gone) {
    RoleReader back(end.association->getName(), *end.opposite);
    back.read(partner);
    if (back.many != nullptr && back.many->isFetched())
        back.many->remove(gone);
    if (back.one != nullptr && back.one->isFetched() && back.one->getInstance() == gone &&
        !ReferenceState::isTouched(*back.one))
        back.one->setFetched(false);
}

}  // namespace Kes
