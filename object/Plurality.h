// What kind of association it is.

#pragma once

#include <kes/Association.h>

namespace Kes {

/// Whether the objects of that role refer to one partner at most.
inline bool isOne(const Association* association, const String& role) {
    return association->getPluralityFor(role) == Association::One;
}

/// False for null.
inline bool isManyToMany(const Association* association) {
    return association != nullptr && !isOne(association, association->getOneRole()) &&
           !isOne(association, association->getOtherRole());
}

inline bool isOneToOne(const Association* association) {
    return isOne(association, association->getOneRole()) &&
           isOne(association, association->getOtherRole());
}

}  // namespace Kes
