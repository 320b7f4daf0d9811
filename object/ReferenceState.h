// What the library keeps in references beside what they refer to.
//
// The only friend of OneAssociatedInstance, OneReference and, with its own
// cursors, of ManyReference.

#pragma once

#include <vector>

#include <kes/Many.h>
#include <kes/One.h>
#include <kes/OneAssociatedInstance.h>

namespace Kes {

class ReferenceState {
public:
    ReferenceState() = delete;

    /// The pending transaction remembers what the reference held.
    static bool isTouched(const OneAssociatedInstance& ref) { return ref.touched; }
    static void setTouched(OneAssociatedInstance& ref, bool on) { ref.touched = on; }

    /// The id of the partner that the reference shows, fetched or not; 0 without.
    static unsigned long partnerOf(OneAssociatedInstance& ref) {
        if (!ref.isFetched())
            return ref.getObjectID();
        const Instance* held = ref.getInstance();
        return held != nullptr ? held->getObjectID() : 0;
    }

    /// The members without an iteration, which the application may have under
    /// way; null marks a gap.
    static const std::vector<Instance*>& members(const ManyReference& ref) { return ref.members; }

    /// Whose the reference is: a OneReference's or a ManyReference's. Null until a
    /// described object has told its own.
    template <class Reference>
    static Instance* owner(const Reference& ref) {
        return ref.owner;
    }
    template <class Reference>
    static void setOwner(Reference& ref, Instance* owner) {
        ref.owner = owner;
    }

    /// Puts the members of a collection that was just loaded in order.
    static void sort(ManyReference& ref) { ref.sort(); }
};

}  // namespace Kes
