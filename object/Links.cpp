#include "object/Links.h"

#include <kes/Class.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/Model.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/Pointer.h>

#include "object/FieldWalk.h"
#include "object/ModelGate.h"
#include "object/ReferenceState.h"

namespace Kes {

namespace {

String describe(const Instance* instance) {
    return String("the ") + instance->getClass()->getName() + " object with id " +
           String(instance->getObjectID());
}

void fail(const char* operation, const String& message) {
    Exception(Exception::ERROR, "REFERR", operation, message).handle();
}

// A link demands a living partner of the right class in the same model.
bool isAcceptable(const Instance* owner, const Instance* partner, const ReferenceFinder& end,
                  const char* operation) {
    const String& role = end.getRole();
    if (partner == nullptr) {
        fail(operation, String("The reference ") + role + " of " + describe(owner) +
                            " cannot take null; give it an instance");
        return false;
    }
    if (!owner->inSameModel(partner)) {
        fail(operation, String("The reference ") + role + " of " + describe(owner) +
                            " cannot take " + describe(partner) +
                            ", which belongs to another model");
        return false;
    }
    if (partner->isRemoved() || owner->isRemoved()) {
        fail(operation,
             String("The reference ") + role + " of " + describe(owner) +
                 (owner->isRemoved()
                      ? String(", which was removed, cannot take ") + describe(partner)
                      : String(" cannot take ") + describe(partner) + ", which was removed"));
        return false;
    }
    if (owner->getObjectID() == 0 || partner->getObjectID() == 0) {
        fail(operation, String("The reference ") + role + " of " + describe(owner) +
                            " cannot take " + describe(partner) +
                            " before both are added; call add first");
        return false;
    }
    const Class* wanted = end.getAssociation()->getClassFor(end.getOtherRole());
    if (wanted != nullptr && !partner->getClass()->isA(wanted)) {
        fail(operation, String("The reference ") + role + " of " + describe(owner) + " takes " +
                            wanted->getName() + " objects and not " + describe(partner));
        return false;
    }
    return true;
}

}  // namespace

// The references of both ends change before the link is recorded: where it is
// not, they show again what they did.
class LinkAttempt {
public:
    explicit LinkAttempt(Model* itsModel)
        : model(itsModel),
          mark(ModelGate::markReferences(model)) {}
    LinkAttempt(const LinkAttempt&) = delete;
    LinkAttempt& operator=(const LinkAttempt&) = delete;
    ~LinkAttempt() {
        if (!isDone)
            ModelGate::revertLastReferences(model, mark);
    }

    void done() { isDone = true; }

private:
    Model* model;
    std::size_t mark;
    bool isDone = false;
};

ReferenceFinder::ReferenceFinder(Instance* itsOwner, const void* ref, const char* operation)
    : owner(itsOwner),
      wanted(ref) {
    walkFields(owner, *this);
    if (!found())
        fail(operation, String("The reference is none that ") + describe(owner) +
                            " reports from its handle operation; report it there, or pass one "
                            "of the object's own");
}

const String& ReferenceFinder::getOtherRole() const {
    return association->getAssociatedRole(*role);
}

void ReferenceFinder::compare(const String& name, const String& itsRole, const void* ref) {
    if (ref != wanted || association != nullptr)
        return;
    association = owner->getClass()->getModel()->getAssociation(name);
    if (association == nullptr)
        return;
    role = &association->getAssociatedRole(association->getAssociatedRole(itsRole));
}

void ReferenceFinder::handleOneAssociated(const String& name, const String& itsRole,
                                          OneAssociatedInstance* ref,
                                          Association::ConsistencyRule) {
    compare(name, itsRole, ref);
}

void ReferenceFinder::handleManyAssociated(const String& name, const String& itsRole,
                                           ManyAssociatedInstances* ref) {
    compare(name, itsRole, ref);
}

void RoleReader::read(Instance* instance) {
    one = nullptr;
    many = nullptr;
    walkFields(instance, *this);
}

void RoleReader::handleOneAssociated(const String& name, const String& itsRole,
                                     OneAssociatedInstance* ref, Association::ConsistencyRule) {
    if (name == association && itsRole == role)
        one = ref;
}

void RoleReader::handleManyAssociated(const String& name, const String& itsRole,
                                      ManyAssociatedInstances* ref) {
    if (name == association && itsRole == role)
        many = ref;
}

void LinkHandler::change(ManyAssociatedInstances& ref, Instance* itsPartner) {
    Model* model = instance->getClass()->getModel();
    LinkAttempt attempt(model);
    const bool add = mode == Add;
    bool known = ref.isFetched() && ref.contains(itsPartner) == add;
    if (ref.isFetched() && !known) {
        ModelGate::rememberMember(instance, ref, itsPartner, add);
        if (add)
            ref.add(itsPartner);
        else
            ref.remove(itsPartner);
    }
    visit(itsPartner);
    if (add && back != nullptr)
        noteShown(ref);
    known = known || (unchanged && !ref.isFetched());
    ModelGate::link(model, add, instance, role, itsPartner, association);
    attempt.done();
    if (known)
        ModelGate::noteUnchangedLink(model, instance, itsPartner);
    else if (!ref.isFetched() && !seen)
        ModelGate::noteUnsureLink(model, instance, itsPartner);
}

// Of a link of many to many one side may show it, and the other be read later.
void LinkHandler::noteShown(const ManyAssociatedInstances& ref) const {
    if (ref.isFetched() && !seen)
        ModelGate::noteMember(instance, ref, partner, association, role);
    else if (!ref.isFetched() && seen)
        ModelGate::noteMember(partner, *back, instance, association,
                              association->getAssociatedRole(role));
}

void LinkHandler::visit(Instance* itsPartner) {
    partner = itsPartner;
    walkFields(partner, *this);
}

bool LinkHandler::isOpposite(const String& name, const String& itsRole) const {
    return name == association->getName() && itsRole != role;
}

// A partner that has somebody else, or that is taken from somebody whom it does
// not have: what is going to be stored is not what memory shows after that.
bool LinkHandler::leadsElsewhere(OneAssociatedInstance& ref) const {
    const unsigned long id = ReferenceState::partnerOf(ref);
    return id != instance->getObjectID() && (mode == Remove || id != 0);
}

void LinkHandler::handleOneAssociated(const String& name, const String& itsRole,
                                      OneAssociatedInstance* ref, Association::ConsistencyRule) {
    if (!isOpposite(name, itsRole))
        return;
    seen = true;
    if (leadsElsewhere(*ref))
        ModelGate::noteContestedLink(partner->getClass()->getModel());
    ModelGate::rememberReference(partner, *ref, association, itsRole);
    ref->setInstance(mode == Add ? instance : nullptr);
    ref->setObjectID(mode == Add ? instance->getObjectID() : 0);
    ref->setFetched(true);
}

void LinkHandler::handleManyAssociated(const String& name, const String& itsRole,
                                       ManyAssociatedInstances* ref) {
    if (!isOpposite(name, itsRole))
        return;
    back = ref;
    if (!ref->isFetched())
        return;
    seen = true;
    const bool add = mode == Add;
    if (ref->contains(instance) == add) {
        unchanged = true;
        return;
    }
    ModelGate::rememberMember(partner, *ref, instance, add);
    if (add)
        ref->add(instance);
    else
        ref->remove(instance);
}

void Instance::get(OneAssociatedInstance& ref, bool force) {
    if (ownModel("Instance::get") == nullptr || (ref.isFetched() && !force))
        return;
    const ReferenceFinder end(this, &ref, "Instance::get");
    if (!end.found())
        return;
    ModelGate::loadPartner(this, ref, end.getAssociation(), end.getRole(), force);
}

void Instance::get(ManyAssociatedInstances& ref, bool force) {
    if (ownModel("Instance::get") == nullptr || (ref.isFetched() && !force))
        return;
    const ReferenceFinder end(this, &ref, "Instance::get");
    if (!end.found())
        return;
    ModelGate::loadMembers(this, ref, end.getAssociation(), end.getRole(), force);
}

void Instance::set(OneAssociatedInstance& ref, Instance* partner) {
    if (ownModel("Instance::set") == nullptr)
        return;
    const ReferenceFinder end(this, &ref, "Instance::set");
    if (!end.found())
        return;
    if (partner != nullptr && !isAcceptable(this, partner, end, "Instance::set"))
        return;
    Model* model = cls->getModel();
    Association* association = end.getAssociation();
    if (!ref.isFetched())
        ModelGate::loadPartner(this, ref, association, end.getRole(), false);
    if (!ref.isFetched())
        return;  // it could not be loaded, and the error handler returned
    const Pointer<Instance> old(ref.getInstance());
    if (partner == nullptr && old == nullptr)
        return;
    LinkAttempt attempt(model);
    ModelGate::rememberReference(this, ref, association, end.getRole());
    ref.setInstance(partner);
    ref.setObjectID(partner != nullptr ? partner->getObjectID() : 0);

    if (old != nullptr)
        LinkHandler(this, association, end.getRole(), LinkHandler::Remove).visit(old);
    if (partner != nullptr) {
        LinkHandler(this, association, end.getRole(), LinkHandler::Add).visit(partner);
        ModelGate::link(model, true, this, end.getRole(), partner, association);
    } else {
        ModelGate::link(model, false, this, end.getRole(), old, association);
    }
    attempt.done();
}

void Instance::add(ManyAssociatedInstances& ref, Instance* partner) {
    if (ownModel("Instance::add") == nullptr)
        return;
    const ReferenceFinder end(this, &ref, "Instance::add");
    if (end.found() && isAcceptable(this, partner, end, "Instance::add"))
        LinkHandler(this, end.getAssociation(), end.getRole(), LinkHandler::Add)
            .change(ref, partner);
}

void Instance::remove(ManyAssociatedInstances& ref, Instance* partner) {
    if (ownModel("Instance::remove") == nullptr)
        return;
    const ReferenceFinder end(this, &ref, "Instance::remove");
    if (!end.found())
        return;
    if (partner == nullptr) {
        fail("Instance::remove", String("The reference ") + end.getRole() + " of " +
                                     describe(this) + " has no null member");
        return;
    }
    LinkHandler(this, end.getAssociation(), end.getRole(), LinkHandler::Remove)
        .change(ref, partner);
}

}  // namespace Kes
