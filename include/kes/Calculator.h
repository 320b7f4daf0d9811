// What a driver may offer besides DBDriver: parts of results, and counts.

#pragma once

#include <cstdint>

#include <kes/Export.h>
#include <kes/Forward.h>

namespace Kes {

/// A driver object may derive from it as well. Limits and counts are then the
/// database's work; without it the library reads the rows and counts them.
///
/// Such a driver also understands Condition::NOT_LIKE.
class KES_EXPORT Calculator {
public:
    virtual ~Calculator();

    /// As DBDriver::defineSelection, of which each concrete class has at most
    /// `count` rows, after the first `offset` in the order of the selection.
    /// `offset` is 0 where there are several concrete classes.
    virtual SelectionDefinition* definePart(AssociatedClass* associatedClass, std::uint64_t offset,
                                            std::uint64_t count) = 0;

    /// Sets `number` to the number of stored objects that the selection would
    /// deliver, of one state of the database, or to `most` where there are more.
    /// False, with a message, on failure.
    virtual bool count(AssociatedClass* associatedClass, std::uint64_t most,
                       std::uint64_t& number) = 0;
};

/// What a cursor may offer besides DBDriverSelection. The rows of several classes
/// are then merged as they are stored, also where an object has pending changes.
class KES_EXPORT StoredKeys {
public:
    virtual ~StoredKeys();

    /// Shows the sort keys of the current row to the handler, each once, by name
    /// and as the class's own handle operation would. Does not keep what the
    /// handler changes. False when they cannot be had: the object is asked then.
    virtual bool showKeys(Handler& handler) = 0;
};

}  // namespace Kes
