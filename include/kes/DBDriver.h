// The boundary between the library and the databases.
//
// A driver is a shared library NAME.dll that exports one plain function,
// `extern "C" Kes::DBDriver* gdd()`, which returns a new driver object for the
// caller. The order of the virtual operations below is a binary contract with
// separately built drivers: none is ever inserted, removed or moved.

#pragma once

#include <cstdint>
#include <ostream>

#include <kes/Export.h>
#include <kes/Forward.h>
#include <kes/String.h>

namespace Kes {

/// What DBDriver::refresh found. Drivers may derive from it.
struct DBDriverStatus {
    enum Code : std::int32_t {
        Unchanged = 0,
        Changed = 1,  ///< The stored object is newer; the instance was brought up to date.
        Removed = 2   ///< The object is not stored (any more).
    };
    std::int32_t code = Unchanged;
};

/// A driver's compiled query. Opaque to the library, which only passes it back
/// and deletes it; it may be deleted before the cursors that were fetched with
/// it.
class KES_EXPORT SelectionDefinition {
public:
    virtual ~SelectionDefinition();
};

/// A cursor over the rows of one concrete class, filtered and sorted.
class KES_EXPORT DBDriverSelection {
public:
    virtual ~DBDriverSelection();

    /// Advances; false at the end. A failure is raised as SELERR (ERROR) and
    /// ends the cursor.
    virtual bool next() = 0;

    /// The current row's instance: the one that Model::get knows, or a new one
    /// that the cursor filled and handed to Model::set. The cursor keeps it
    /// alive with a Pointer until it advances. Null with no current row.
    virtual Instance* getInstance() = 0;
};

/// Data mapper and one connection to one database, used by one model on its
/// thread.
///
/// A flag result is true for success; after a false one getErrorMessage tells
/// why. Operations do not throw. What a driver owes:
///
/// - Instances: a stored object is looked up with Model::get first. One that is
///   in memory is returned as it is, or, when its stored version is newer and
///   Model::isPending is false, brought up to date. A new one comes from
///   Class::getDummy, is filled through a Handler (object id and version
///   included; references set to unfetched, one-references with the partner's
///   id) and then handed to Model::set, as one brought up to date is too. When
///   a value is refused or the object's handle throws on the way, one that was
///   in memory keeps the fields, references and version that it had.
/// - Versions: update, remove and a changed link demand that the stored row has
///   the version before; otherwise they, or commit at the latest, fail and name
///   the object that somebody else changed or removed.
/// - Writes may be queued and sent later, at commit at the latest; a failure
///   that shows up late fails the operation during which it shows up.
class KES_EXPORT DBDriver {
public:
    virtual ~DBDriver();

    /// Never called; keeps its place in the table.
    virtual void reserved();

    /// `source` is what the database's own users expect, `options` is
    /// `key=value` pairs separated by `;`. Unknown keys fail the open.
    virtual bool open(const String& source, const String& password, const String& user,
                      const String& options) = 0;
    virtual bool close() = 0;

    /// The stored version of a model (`kind` "MODEL") or class ("CLASS"); 0 or
    /// less for a name that was never stored.
    virtual int getVersion(const String& name, const String& kind) = 0;
    virtual void setVersion(const String& name, int version, const String& kind) = 0;

    /// Schema synchronisation, for concrete classes: prepare the old storage
    /// for replacement, make the new storage, move the data over.
    virtual bool createClass(Class* cls) = 0;
    virtual bool beginClassUpdate(Class* cls) = 0;
    virtual bool endClassUpdate(Class* cls) = 0;

    /// For every class that has sub classes, abstract or not.
    virtual bool createView(Class* cls) = 0;
    virtual bool createAssociation(Association* association) = 0;

    /// The text of the last failure: driver, what was tried, on which class and
    /// object, the database's own words. Valid until the next operation.
    virtual const String& getErrorMessage() = 0;

    /// What the last refresh that returned false found. Owned by the driver.
    virtual const DBDriverStatus* getStatus() = 0;

    /// An object id that was never given out before, not even by another
    /// process or before a crash; 0 when none is to be had.
    virtual unsigned long newObjectID() = 0;

    /// Commits what was written since the last commit or rollback. False means
    /// that rollback is called next.
    virtual bool commit() = 0;

    /// True also when there is nothing (left) to roll back.
    virtual bool rollback() = 0;

    /// Makes, or removeLink dissolves, the link of `first` in its role
    /// `firstRole` with `second` in its role `secondRole`.
    ///
    /// Where `firstRole` is a one-reference the link is part of `first`'s row.
    /// `linkFlag` tells that the same commit writes or removes that row by an
    /// insert, update or remove of its own; otherwise the library has raised
    /// `first`'s version just before the call, as it does before update. Where
    /// `secondRole` is a one-reference, the driver raises `second`'s version,
    /// once in a commit, unless Instance::inTransaction tells that it is raised
    /// anyway.
    ///
    /// removeLink dissolves that link and no other: a reference that leads to
    /// somebody else by then, in the database or after an earlier call of the
    /// same commit, stays. An end that was never stored (isRemoved without
    /// inTransaction) had taken the other end from whoever had it before, so
    /// that one's reference is emptied whatever it holds.
    virtual bool addLink(Instance* first, const String& firstRole, Instance* second,
                         const String& secondRole, Association* association, bool linkFlag) = 0;
    virtual bool insert(Instance* instance) = 0;

    /// Model::getChangedFields tells which fields differ from the stored ones.
    virtual bool update(Instance* instance) = 0;
    virtual bool removeLink(Instance* first, const String& firstRole, Instance* second,
                            const String& secondRole, Association* association, bool linkFlag) = 0;

    /// Leaves no reference to the object behind in the database. A row that
    /// loses one has its version raised, once in a commit; see EmptyingDriver.
    virtual bool remove(Instance* instance) = 0;

    /// Compares the instance's version with the stored one and brings the
    /// instance up to date. True: nothing to report. False: see getStatus. A
    /// failure is raised as REFFAIL (ERROR); then the result does not count.
    virtual bool refresh(Instance* instance) = 0;

    /// Keeps others from changing the stored object until commit or rollback.
    /// Fails when it is changed, removed or locked by somebody else.
    virtual bool lock(Instance* instance) = 0;

    /// New, for the caller; null, with a message, for a query that cannot be
    /// answered. `associatedClass` is borrowed and outlives the definition.
    virtual SelectionDefinition* defineSelection(AssociatedClass* associatedClass) = 0;

    /// A cursor, new, for the caller; null, with a message, on failure. The
    /// cursors of one definition show one state of the database; the library
    /// fetches them, and advances each once, with no other call in between.
    virtual DBDriverSelection* fetch(Class* cls, SelectionDefinition* definition) = 0;

    /// Writes every statement with its values to a borrowed stream.
    virtual void traceSQLTo(std::ostream& stream) = 0;
    virtual void disableSQLTrace() = 0;
};

}  // namespace Kes
