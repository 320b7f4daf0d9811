#include "transaction/ReferenceJournal.h"

#include <kes/Association.h>
#include <kes/ManyAssociatedInstances.h>
#include <kes/OneAssociatedInstance.h>

#include "object/DroppedPartners.h"
#include "object/ReferenceState.h"

namespace Kes {

namespace {

void untouch(const Remembered& entry) noexcept {
    if (entry.isFirst)
        ReferenceState::setTouched(*static_cast<OneAssociatedInstance*>(entry.ref), false);
}

}  // namespace

void addOrUnfetch(ManyAssociatedInstances& ref, Instance* member) noexcept {
    try {
        if (!ref.contains(member))
            ref.add(member);
    } catch (...) {
        ref.setFetched(false);
    }
}

void rememberReference(Changes& changes, Instance* owner, OneAssociatedInstance& ref,
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
    changes.journal.push_back(entry);
    ReferenceState::setTouched(ref, true);
}

void rememberMember(Changes& changes, Instance* owner, ManyAssociatedInstances& ref,
                    Instance* member, bool added) {
    Remembered entry{};
    entry.kind = added ? Remembered::MemberAdded : Remembered::MemberRemoved;
    entry.fetched = true;
    entry.owner = owner;
    entry.ref = &ref;
    entry.instance = member;
    changes.journal.push_back(entry);
}

void rememberLostLink(Changes& changes, Instance* owner, Instance* member, Association* association,
                      const String& role) {
    Remembered entry{};
    entry.kind = Remembered::LostLink;
    entry.ownerIsOne = role == association->getOneRole();
    entry.owner = owner;
    entry.instance = member;
    entry.association = association;
    changes.journal.push_back(entry);
}

void revertReferences(const Changes& changes, std::size_t mark) noexcept {
    const DroppedPartners::Pause pause;
    const auto end = changes.journal.rend() - static_cast<std::ptrdiff_t>(mark);
    for (auto entry = changes.journal.rbegin(); entry != end; ++entry) {
        if (entry->kind == Remembered::One) {
            auto* ref = static_cast<OneAssociatedInstance*>(entry->ref);
            if (!ReferenceState::isTouched(*ref))
                continue;  // it was read again since
            ref->setFetched(entry->fetched);
            ref->setInstance(entry->instance);
            ref->setObjectID(entry->objectID);
            ReferenceState::setTouched(*ref, !entry->isFirst);
            continue;
        }
        if (entry->kind == Remembered::LostLink)
            continue;
        auto* ref = static_cast<ManyAssociatedInstances*>(entry->ref);
        if (!ref->isFetched())
            continue;
        if (entry->kind == Remembered::MemberAdded)
            ref->remove(entry->instance);
        else
            addOrUnfetch(*ref, entry->instance);
    }
}

void revertLastReferences(Changes& changes, std::size_t mark) noexcept {
    if (changes.journal.size() <= mark)
        return;
    revertReferences(changes, mark);
    for (; changes.journal.size() > mark; changes.journal.pop_back())
        untouch(changes.journal.back());
}

void unfetchCollections(const Changes& changes) {
    for (const Remembered& entry : changes.journal) {
        if (entry.kind != Remembered::MemberAdded && entry.kind != Remembered::MemberRemoved)
            continue;
        auto* ref = static_cast<ManyAssociatedInstances*>(entry.ref);
        ref->clear();
        ref->setFetched(false);
    }
}

void untouchReferences(const Changes& changes) noexcept {
    for (const Remembered& entry : changes.journal)
        untouch(entry);
}

}  // namespace Kes
