// References of described objects work within transactions only, and what they
// raise is an Error. Those of objects with a handle operation of their own are
// used as ever.

#include <kes/Error.h>
#include <kes/Many.h>
#include <kes/One.h>
#include <kes/Ref.h>

#include "typed/ReferenceAccess.h"
#include "typed/Session.h"

namespace Kes {

namespace {

// Loads a reference of its owner.
template <class Reference>
void loadReference(const Reference& reference) {
    Instance* owner = ReferenceAccess::ownerOf(reference);
    auto& ref = const_cast<Reference&>(reference);
    if (DescribedClass::of(owner) == nullptr)
        owner->get(ref);
    else
        guarded(*owner->getClass()->getModel(), [&] { owner->get(ref); });
}

// Links or unlinks within the transaction of the owner's session.
template <class Work>
void changeLink(Instance* owner, Instance* partner, Work work) {
    if (DescribedClass::of(owner) == nullptr) {
        work();
        return;
    }
    Session& session = Session::of(owner, "Kes::Transaction");
    session.noteLink(owner, partner);
    guarded(session, work);
}

}  // namespace

void ReferenceAccess::attach(const DescribedReference& reference, Instance* owner) {
    if (reference.isMany)
        ReferenceState::setOwner(*static_cast<ManyReference*>(reference.of(owner)), owner);
    else
        ReferenceState::setOwner(*static_cast<OneReference*>(reference.of(owner)), owner);
}

void ReferenceAccess::report(Handler& handler, const DescribedReference& reference,
                             Instance* owner) {
    if (reference.isMany)
        handler.handleManyAssociated(reference.association, reference.role,
                                     static_cast<ManyReference*>(reference.of(owner)));
    else
        handler.handleOneAssociated(reference.association, reference.role,
                                    static_cast<OneReference*>(reference.of(owner)),
                                    reference.rule);
}

void ReferenceAccess::failWithoutOwner() {
    throw Error(ErrorKind::Misuse, "REFERR", "Kes::One",
                "The reference belongs to no stored object: its class does not describe it, or "
                "its object was not made by a transaction; describe both ends of the link, and "
                "make objects with Transaction::make");
}

void OneReference::load() const {
    loadReference(*this);
}

Instance* OneReference::require() const {
    Instance* partner = fetch();
    if (partner == nullptr)
        throw Error(ErrorKind::Misuse, "REFERR", "Kes::One",
                    "The reference has no partner to look at; ask before whether it has one");
    return partner;
}

void OneReference::link(Instance* partner) {
    Instance* of = ReferenceAccess::ownerOf(*this);
    changeLink(of, partner, [&] { of->set(*this, partner); });
}

void ManyReference::load() const {
    loadReference(*this);
}

void ManyReference::link(Instance* partner) {
    Instance* of = ReferenceAccess::ownerOf(*this);
    changeLink(of, partner, [&] { of->add(*this, partner); });
}

void ManyReference::unlink(Instance* partner) {
    Instance* of = ReferenceAccess::ownerOf(*this);
    changeLink(of, partner, [&] { of->remove(*this, partner); });
}

ManyReference::KeepingCursor::KeepingCursor(const ManyReference* reference)
    : Cursor(reference, 0),
      keeper(Cursor::owner()) {
    take();
}

// Without its owner there is no collection left to tell.
ManyReference::KeepingCursor::~KeepingCursor() {
    if (keeper == nullptr)
        abandon();
}

void ManyReference::KeepingCursor::advance() {
    if (keeper == nullptr) {
        abandon();
        member.makeNull();
        return;
    }
    Cursor::advance();
    take();
}

void ManyReference::KeepingCursor::take() {
    if (Cursor::atEnd())
        member.makeNull();
    else
        member = Cursor::current();
}

unsigned long RefBase::getObjectID() const {
    const Instance* instance = getInstance();
    return instance != nullptr ? instance->getObjectID() : 0;
}

Instance* RefBase::require(const Instance& instance) {
    if (instance.getClass() == nullptr)
        throw Error(ErrorKind::Misuse, "REFERR", "Kes::Ref",
                    "The object belongs to no database; make it with Transaction::make");
    return const_cast<Instance*>(&instance);
}

void RefBase::failEmpty() {
    throw Error(ErrorKind::Misuse, "REFERR", "Kes::Ref",
                "The Ref is empty, or its database was closed; ask before whether it refers to "
                "an object");
}

}  // namespace Kes
