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

// Two texts may be equal; the association's own tells them apart.
const String* ownText(const Association* association, const String& role) {
    return &association->getAssociatedRole(association->getAssociatedRole(role));
}

unsigned long partnerOf(OneAssociatedInstance& ref) {
    if (!ref.isFetched())
        return ref.getObjectID();
    const Instance* held = ref.getInstance();
    return held != nullptr ? held->getObjectID() : 0;
}

void pointTo(OneAssociatedInstance& ref, unsigned long partner) {
    ref.setFetched(false);
    ref.setObjectID(partner);
}

}  // namespace

LinkFollower::Ends& LinkFollower::endsOf(const Class* cls) {
    if (cls == lastClass)
        return *lastEnds;
    const auto [place, isNew] = classes.try_emplace(cls);
    lastClass = cls;
    lastEnds = &place->second;
    if (!isNew)
        return *lastEnds;
    for (const Association* association : model->getDeclaredAssociations()) {
        for (const String* role : {&association->getOneRole(), &association->getOtherRole()}) {
            const Class* reporting = association->getClassFor(*role);
            if (reporting == nullptr || !cls->isA(reporting))
                continue;
            const String* opposite = &association->getAssociatedRole(*role);
            const End end{association, role, opposite,
                          association->getPluralityFor(*opposite) == Association::One};
            if (association->getPluralityFor(*role) == Association::One)
                lastEnds->ones.push_back(end);
            else
                lastEnds->manies.push_back(end);
        }
    }
    return *lastEnds;
}

void LinkFollower::noteCollections(const Association* association, const String& role) {
    shown.insert(ownText(association, role));
}

void LinkFollower::noteNew(const Class* cls) {
    Ends& ends = endsOf(cls);
    if (ends.isNew)
        return;
    for (const End& end : ends.manies)
        shown.insert(end.role);
    ends.isNew = true;
}

void LinkFollower::follow(Instance* instance, const DroppedPartners& dropped,
                          const Association* filling) {
    for (const End& end : endsOf(instance->getClass()).ones) {
        if (end.association == filling && dropped.entries.empty())
            continue;
        if (end.isOppositeOne || shown.count(end.opposite) != 0)
            follow(instance, end, dropped);
    }
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
    const unsigned long before = partnerOf(ref);
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
    if (back.one != nullptr && partnerOf(*back.one) == instance->getObjectID() &&
        !ReferenceState::isTouched(*back.one))
        pointTo(*back.one, 0);
}

void LinkFollower::followMembers(Instance* owner, ManyAssociatedInstances& ref,
                                 const Association* association, const String& role) {
    const String& opposite = association->getAssociatedRole(role);
    if (association->getPluralityFor(opposite) == Association::One || shown.count(&opposite) == 0)
        return;
    RoleReader back(association->getName(), opposite);
    for (ref.reset(); ref.next();) {
        back.read(ref.value());
        if (back.many != nullptr && back.many != &ref && back.many->isFetched() &&
            !back.many->contains(owner))
            back.many->add(owner);
    }
}

void LinkFollower::unfetchCollections(Instance* instance) {
    for (const End& end : endsOf(instance->getClass()).manies) {
        RoleReader field(end.association->getName(), *end.role);
        field.read(instance);
        if (field.many != nullptr && field.many->isFetched())
            field.many->setFetched(false);
    }
}

}  // namespace Kes
