// The references of described objects.

#pragma once

#include <kes/Handler.h>
#include <kes/Instance.h>
#include <kes/Many.h>
#include <kes/One.h>

#include "object/ReferenceState.h"
#include "typed/DescribedClass.h"

namespace Kes {

class ReferenceAccess {
public:
    /// Tells the reference whose it is.
    static void attach(const DescribedReference& reference, Instance* owner);

    static void report(Handler& handler, const DescribedReference& reference, Instance* owner);

    /// Raises Error (Misuse) where the reference has no owner.
    template <class Reference>
    static Instance* ownerOf(const Reference& reference) {
        Instance* owner = ReferenceState::owner(reference);
        if (owner == nullptr)
            failWithoutOwner();
        return owner;
    }

private:
    [[noreturn]] static void failWithoutOwner();
};

}  // namespace Kes
