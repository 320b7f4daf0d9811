// What a driver may offer besides DBDriver: a look at what it has stored about
// the schema.

#pragma once

#include <vector>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// One record that DBDriver::setVersion has stored.
struct StoredVersion {
    String name;
    String kind;
    int version;
};

/// A driver object may derive from it as well. The library then keeps how each
/// class was declared when its storage was made, and which model it belongs to,
/// and refuses to open a model whose declaration does not fit the storage.
///
/// For that it calls DBDriver::setVersion with further kinds, "OWNER", "FIELD",
/// "LINK" and "INDEX", in the transaction in which it stores the versions of
/// the classes, or in one of its own. A version of 0 takes a record away.
class KES_EXPORT SchemaReader {
public:
    virtual ~SchemaReader();

    /// Appends all records, of all models and in any order; those that the open
    /// transaction has written need not be among them. False, with a message,
    /// when they cannot be read. Does not throw.
    virtual bool readVersions(std::vector<StoredVersion>& versions) = 0;

    /// The name of a field or one-reference that the class reports and its
    /// storage does not have; empty when there is none, or when it cannot be
    /// told. Asked for concrete classes without records. Does not throw.
    virtual String findMissingField(Class* cls) = 0;
};

}  // namespace Kes
