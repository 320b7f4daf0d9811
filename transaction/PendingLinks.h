// Pending links in collections that are loaded after they were recorded.

#pragma once

#include <kes/Forward.h>

#include "transaction/Changes.h"

namespace Kes {

/// Brings a freshly loaded collection up to date with the pending links.
void applyPendingLinks(Changes& changes, Instance* owner, ManyAssociatedInstances& ref,
                       const Association* association, const String& role);

}  // namespace Kes
