// Telling listeners what a commit or a refresh has brought.
//
// Who hears first, and that all hear though one throws, is the business of
// Class and Association; this is the way to them for the rooms that know when.

#pragma once

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Instance.h>

namespace Kes {

class Events {
public:
    Events() = delete;

    static void added(Instance* instance) { instance->getClass()->fireInstanceAdded(instance); }
    static void changed(Instance* instance) { instance->getClass()->fireInstanceChanged(instance); }
    static void removed(Instance* instance) { instance->getClass()->fireInstanceRemoved(instance); }
    static void linked(Association* association, Instance* one, Instance* other) {
        association->fireAssociationAdded(one, other);
    }
    static void unlinked(Association* association, Instance* one, Instance* other) {
        association->fireAssociationRemoved(one, other);
    }
};

}  // namespace Kes
