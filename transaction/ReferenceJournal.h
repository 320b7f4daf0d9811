// The reference journal: what references in memory held before links changed
// them.
//
// Worked off backwards, it puts all references back. The owner plays `role` in
// the association, here and below.

#pragma once

#include <cstddef>

#include <kes/Forward.h>

#include "transaction/Changes.h"

namespace Kes {

void rememberReference(Changes& changes, Instance* owner, OneAssociatedInstance& ref,
                       const Association* association, const String& role);
void rememberMember(Changes& changes, Instance* owner, ManyAssociatedInstances& ref,
                    Instance* member, bool added);

/// A many-to-many link goes with both of its ends, without an action of its own.
void rememberLostLink(Changes& changes, Instance* owner, Instance* member, Association* association,
                      const String& role);

/// Adds the member in memory; a collection that finds no memory for it is read
/// again.
void addOrUnfetch(ManyAssociatedInstances& ref, Instance* member) noexcept;

/// Puts back what links have changed since the journal had `mark` entries.
void revertReferences(const Changes& changes, std::size_t mark = 0) noexcept;

/// The same for a link that was not recorded after all; its entries go.
void revertLastReferences(Changes& changes, std::size_t mark) noexcept;

/// The collections that links have changed are read again when they are asked
/// for.
void unfetchCollections(const Changes& changes);

/// The transaction is over: no reference is touched by it any more.
void untouchReferences(const Changes& changes) noexcept;

}  // namespace Kes
