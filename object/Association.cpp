#include <kes/Association.h>

#include <kes/Class.h>
#include <kes/Exception.h>
#include <kes/Instance.h>
#include <kes/Listener.h>

#include "core/FatalEnd.h"
#include "object/InstanceState.h"
#include "object/ListenerList.h"

namespace Kes {

namespace {

// Roles are mostly handed about as the association's own texts, and these are
// asked for so often that comparing the letters shows.
bool isRole(const String& role, const String& own, const String& opposite) {
    return &role == &own || (&role != &opposite && role == own);
}

}  // namespace

Association::Association(const String& associationName, Class* one, const String& roleOfOne,
                         Plurality pluralityOfOne, Class* other, const String& roleOfOther,
                         Plurality pluralityOfOther, ConsistencyRule rule)
    : oneClass(one),
      otherClass(other),
      name(associationName.unshared()),
      oneRole(roleOfOne.unshared()),
      otherRole(roleOfOther.unshared()),
      onePlurality(pluralityOfOne),
      otherPlurality(pluralityOfOther),
      consistencyRule(rule) {}

Association::Association(const String& associationName, Class* one, const String& roleOfOne,
                         Plurality pluralityOfOne, ConsistencyRule rule)
    : Association(associationName, one, roleOfOne, pluralityOfOne, nullptr, String(), One, rule) {}

Association::~Association() = default;

void Association::initializeOtherClass(Class* cls, const String& role, Plurality plurality,
                                       ConsistencyRule rule) {
    if (role == oneRole) {
        if (oneClass->isA(cls))
            oneClass = cls;
        return;
    }
    if (otherClass != nullptr && otherClass->isA(cls)) {
        otherClass = cls;
        return;
    }
    otherClass = cls;
    otherRole = role.unshared();
    otherPlurality = plurality;
    if (rule != Unlink)
        consistencyRule = rule;
}

Class* Association::getClassFor(const String& role) const {
    if (isRole(role, otherRole, oneRole))
        return otherClass;
    if (isRole(role, oneRole, otherRole))
        return oneClass;
    failOnRole("Association::getClassFor", role);
}

const String& Association::getAssociatedRole(const String& role) const {
    if (isRole(role, oneRole, otherRole))
        return otherRole;
    if (isRole(role, otherRole, oneRole))
        return oneRole;
    failOnRole("Association::getAssociatedRole", role);
}

Association::Plurality Association::getPluralityFor(const String& role) const {
    if (isRole(role, oneRole, otherRole))
        return onePlurality;
    if (isRole(role, otherRole, oneRole))
        return otherPlurality;
    failOnRole("Association::getPluralityFor", role);
}

void Association::failOnRole(const char* operation, const String& role) const {
    Exception(Exception::FATAL, "ASSERR", operation,
              String("Association does not have role: ") + role)
        .handle();

    // There is no answer that the caller could go on with.
    endProcess();
}

void Association::addListener(Listener* listener) {
    addToListeners(listeners, listener);
}

void Association::removeListener(Listener* listener) {
    removeFromListeners(listeners, listener);
}

void Association::fireAssociationAdded(Instance* one, Instance* other) {
    FirstFailure failure;
    failure.attempt([&] { InstanceState::fireLinked(one, this, other); });
    failure.attempt([&] { InstanceState::fireLinked(other, this, one); });
    const AssociationEvent event(one, other, this);
    failure.attempt(
        [&] { tellListeners(listeners, [&](Listener* l) { l->associationAdded(event); }); });
    failure.rethrow();
}

void Association::fireAssociationRemoved(Instance* one, Instance* other) {
    FirstFailure failure;
    failure.attempt([&] { InstanceState::fireUnlinked(one, this, other); });
    failure.attempt([&] { InstanceState::fireUnlinked(other, this, one); });
    const AssociationEvent event(one, other, this);
    failure.attempt(
        [&] { tellListeners(listeners, [&](Listener* l) { l->associationRemoved(event); }); });
    failure.rethrow();
}

}  // namespace Kes
