// What a driver may offer besides DBDriver: the links of many objects at once.

#pragma once

#include <cstddef>
#include <vector>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// One stored link of a many-to-many association, by the ids of its ends.
struct StoredLink {
    unsigned long owner;
    unsigned long member;
};

/// A driver object may derive from it as well. The many-to-many collections of
/// objects that one selection delivered are then loaded together; without it,
/// each with a query of its own.
class KES_EXPORT LinkReader {
public:
    virtual ~LinkReader();

    /// Appends the stored links of the objects `owners`, in any order; `role`
    /// is the role whose collections are asked for. Writes that the driver has
    /// queued count. False when there are more than `most`, or when they cannot
    /// be read: nothing is raised, and the library asks for each collection,
    /// with a query that reports what is wrong. Does not throw.
    virtual bool readLinks(Association* association, const String& role,
                           const std::vector<unsigned long>& owners, std::size_t most,
                           std::vector<StoredLink>& links) = 0;
};

}  // namespace Kes
