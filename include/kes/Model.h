// A session with one database.

#pragma once

#include <cstdint>
#include <memory>
#include <ostream>
#include <vector>

#include <kes/Association.h>
#include <kes/Class.h>
#include <kes/Export.h>
#include <kes/Failure.h>
#include <kes/FieldSet.h>
#include <kes/Forward.h>
#include <kes/Mutex.h>
#include <kes/PtrList.h>
#include <kes/String.h>
#include <kes/ThreadCheck.h>
#include <kes/ValPtrHashtable.h>

namespace Kes {

/// An application's session with one database: the unit of work that collects its
/// changes, and the identity map that has each stored object once in memory.
///
/// Applications derive from it and declare their classes in declareModel. A
/// model and everything reached from it belongs to the first thread that uses
/// it; a breach raises MTERR (FATAL) and ends the process when the handler
/// returns. So does FORKERR in a process that was forked after the model was
/// opened: the connection is the parent's alone. A model that is closed may be
/// opened in the child, and one that is open destroyed, which leaves the
/// connection alone. It owns its classes, associations and instances.
class KES_EXPORT Model {
public:
    /// `cacheCapacity` is the number of instances, in entries, above which
    /// unreachable ones are collected: on every 27th that is loaded or made,
    /// and less often where more than 1,024 are in use, so that the cost stays
    /// constant per instance.
    Model(const String& modelName, int cacheCapacity);
    Model(const Model&) = delete;
    Model& operator=(const Model&) = delete;

    /// Empties every Pointer to an instance of this model. An open driver is
    /// destroyed, which rolls back what was not committed.
    virtual ~Model();

    /// Declares the classes (when none is declared yet), loads and opens the
    /// driver, and brings an older schema up to the declared versions.
    ///
    /// Raises DRVERR, LOADDRIV, DBOPENERR, the errors of schema synchronisation
    /// (DELCLS, CRECLS, CREVW, CREASS) or ROLLFAIL, all ERROR; the model is
    /// closed then. A declaration that cannot be stored, such as an association
    /// that no second class reports, raises DECLERR (ERROR). The password is passed to the driver
    /// and not kept.
    void open(const String& driverName, const String& source, const String& password,
              const String& user, const String& options);

    /// Empties all pointers and the object cache and closes or parks the
    /// driver. What was not committed is lost, and a transaction that was
    /// started stays started. Does nothing while closed. Within a listener's
    /// call EVENTERR (ERROR) is raised, and the model stays open. DBCLSERR
    /// (FATAL) ends the process.
    void close();

    bool isOpen() const { return driver != nullptr; }

    /// Null while closed.
    DBDriver* getDriver() const { return driver; }
    const String& getName() const { return name; }
    int getVersion() const { return version; }
    void setVersion(int schemaVersion) { version = schemaVersion; }

    /// Declares a persistent class; its fields and associations are learnt from
    /// a dummy that `factory` makes. The class belongs to the model. Raises
    /// DECLERR (ERROR) for a name that is taken or a missing factory; null then.
    Class* addClass(const String& className, int classVersion, Class::Factory factory);

    /// Adopts the class, which was made for this model. One that is refused as
    /// above is deleted, unless it is declared already, here or in its own model.
    Class* addClass(Class* cls);

    /// Adopts the association, in the same way.
    void addAssociation(Association* association);

    /// Null when absent.
    Class* getClass(const String& className) const;
    Association* getAssociation(const String& associationName) const;
    const ValPtrHashtable<String, Class>& getClasses() const { return classes; }

    /// True while the model lives, for what may outlive it.
    std::shared_ptr<const bool> getLife() const { return life; }

    /// In the order of declaration.
    const std::vector<Class*>& getDeclaredClasses() const { return classOrder; }
    const std::vector<Association*>& getDeclaredAssociations() const { return associationOrder; }

    /// Writes every statement to a borrowed stream, also of drivers that are
    /// opened later.
    void traceSQLTo(std::ostream& stream);
    void disableSQLTrace();

    /// The number of closed drivers that the process keeps for a later open
    /// with the same texts; 0 by default. For any thread.
    static void setDriverCacheSize(int size);

    // --- failures ---

    /// The kind of this model's last failure: of an open, a schema
    /// synchronisation, a query, a refresh, a lock, a commit. Within the
    /// exception handler it is that of the error being handled, and after it,
    /// where the error is caught, too; a rollback does not change it.
    ///
    /// None again from the next open, startTransaction, undo, redo or commit
    /// on, until something fails. Errors without a part of the database are
    /// Unclassified, and so are all of a driver that reports no kinds. So it is, in
    /// place of None, when another model of the thread has raised an error since.
    /// Constant time.
    FailureKind getFailureKind() const;

    // --- objects ---

    /// The instance in memory with that id, or null. Never asks the database.
    Instance* get(unsigned long objectID) const;

    /// As get, but not an object that a refresh has found removed; otherwise it
    /// is loaded. Null when `cls` and its sub classes have no such object.
    Instance* getInstance(unsigned long objectID, Class* cls);

    /// Files an instance that a driver has filled with what is stored, or that
    /// it has brought up to date. One that was removed is stored again then. A
    /// new one that was removed since its cursor was opened is marked so. May
    /// start a collection.
    void set(Instance* instance);

    /// Frees every instance that no Pointer, pending change or selection
    /// reaches, directly or through references. Linear in their number.
    void garbageCollect();

    /// Files a borrowed pointer, or takes it out: what pointers reach is not
    /// collected. Pointer<T> calls both. Constant time.
    void addPointer(PointerBase* pointer);
    void removePointer(PointerBase* pointer);

    // --- transactions ---
    //
    // Several changes of one object in a transaction come to one in the end:
    //
    //   added, then changed    is added with the fields that the commit finds
    //   added, then removed    nothing is written, told to listeners or undone
    //   changed, then removed  is removed
    //   removed, then added    stays stored under its id and is changed; links
    //                          that the removal dissolved stay dissolved
    //   linked, then removed   the links of a removed object go with it
    //   changed twice          is changed once, also for listeners

    /// Begins to record a transaction, which opens a place in the history and
    /// ends what there was to redo. Begun again before a commit, it opens
    /// another place for the changes of both.
    ///
    /// Changes may be recorded without it. They join the next commit, and in
    /// the history the transaction that was begun last; where none ever was,
    /// each commit stands for itself.
    void startTransaction();
    bool transactionStarted() const;

    /// Writes all recorded changes and announces them to the listeners. Raises
    /// COMFAIL (ERROR) after a rollback when the driver refuses one of them.
    void commit();

    /// Takes all recorded changes back, in the database and in memory. Raises
    /// ROLLFAIL (FATAL) and ends the process when the driver cannot.
    void rollback();

    /// See Instance::lock and Instance::refresh.
    void lock(Instance* instance);
    void refresh(Instance* instance);

    /// Records that two instances were linked or unlinked. Applications use
    /// Instance::set, add and remove, which keep the references in step and can
    /// be undone.
    void add(Instance* first, const String& firstRole, Instance* second, const String& secondRole,
             Association* association);
    void remove(Instance* first, const String& firstRole, Instance* second,
                const String& secondRole, Association* association);

    // --- history ---

    // The history names objects by their ids and keeps none in memory. A
    // committed change costs it some 60 bytes, and a changed or removed object
    // its plain fields as well.

    /// Whether the history has a transaction to undo, or one to redo. One that
    /// recorded nothing counts as well, until the next one begins; so does the
    /// place of one that was rolled back.
    bool isUndoable() const;
    bool isRedoable() const;

    /// Takes the newest transaction of the history back, in a transaction of
    /// its own that is committed, announced and can be redone. The place of one
    /// that was rolled back is passed over where there is an older one. Fields, links,
    /// added and removed objects are as they were before; versions go on.
    ///
    /// While a transaction is started, undo only rolls it back, and changes
    /// that were recorded without one are taken back first. Objects that are
    /// not in memory are loaded; an object that comes back is the same C++
    /// object while that is in memory. What others have linked to an object
    /// that undo removes loses its link, as with any removal. A many-to-many
    /// link that was there before it was made, while neither side's collection
    /// was in memory to tell, counts as made.
    ///
    /// Raises, with code and context in this unusual order:
    ///   Model::undo, MDLUNDO (ERROR) when there is nothing to undo;
    ///   Transaction::undo/redo, UNDOREDO (ERROR) when the stored state of an
    ///   object differs from the one that the transaction left, because
    ///   somebody else has changed or removed it.
    /// Commit's errors as well. After each of them all is rolled back and the
    /// transaction stays in the history.
    ///
    /// Reads each object once for its fields and once for each reference that
    /// changed. Linear in the number of changes.
    void undo();

    /// Brings back the transaction that was undone last, in the same way. What
    /// was recorded since is committed with it. Raises Model::redo, MDLREDO
    /// (ERROR) when there is nothing to redo.
    void redo();

    /// The number of transactions that the history keeps, 128 by default; the
    /// oldest go first, at once. A started transaction is kept beyond them.
    void setMaxUndoSize(int transactions);
    int getMaxUndoSize() const;

    // --- for drivers ---

    /// Pass a selection on to the driver, as DBDriver::defineSelection and
    /// DBDriver::fetch do; the result is new, for the caller, and null while the
    /// model is closed. defineSelection ends what was read ahead.
    SelectionDefinition* defineSelection(AssociatedClass* associatedClass);
    DBDriverSelection* fetch(Class* cls, SelectionDefinition* definition);

    /// Whether a change or a link of the instance waits for the commit; such an
    /// instance is not brought up to date. Constant time.
    bool isPending(const Instance* instance) const;

    /// Whether a row of that version has to be read into an instance that is in
    /// memory: it shows an older one and is not pending, or a rollback could not
    /// bring it back. Constant time.
    bool isOutdated(const Instance* instance, unsigned long storedVersion) const;

    /// During DBDriver::update of `instance`: the fields that differ from the
    /// stored ones. False, and `fields` untouched, when that is not known and
    /// all fields have to be written.
    bool getChangedFields(const Instance* instance, FieldSet& fields) const;

protected:
    /// Declares the application's classes: setVersion, addClass.
    virtual void declareModel() = 0;

    void add(Instance* instance);
    void update(Instance* instance);
    void remove(Instance* instance);

    void updateModel();
    DBDriver* getCachedDriver();
    void cacheDriver(DBDriver* closed);

private:
    friend class ModelGate;

    bool openFreshDriver(const String& password);
    bool accepts(SchemaRecords& records, bool isUpgraded);
    void synchronise(SchemaRecords& records);
    void writeRecords(SchemaRecords& records);
    void completeRecords(SchemaRecords& records);
    void useDriver(DBDriver* opened);
    void dropDriver();
    void forgetFailure();
    void saveFailure(FailureReporter* reporter);
    static bool keepsDrivers();
    void declareAll();
    void resolveAssociations();
    bool declaresSoundly() const;
    void undeclare() noexcept;
    void startUsing();
    bool isDeclarable(std::unique_ptr<Class>& cls) const;
    bool isDeclarable(std::unique_ptr<Association>& association) const;
    bool reportsInherited(Class* cls) const;
    bool requireOpen(const char* operation) const;
    void link(bool made, Instance* first, const String& firstRole, Instance* second,
              const String& secondRole, Association* association);
    bool noteRemoval(Instance* instance);
    bool renewOutdated(Instance* instance);
    void recordLink(bool made, Instance* first, const String& firstRole, Instance* second,
                    const String& secondRole, Association* association);
    bool isAdded(const Instance* instance, const char* operation) const;
    bool isUsable(const Instance* instance, const char* operation, const char* verb) const;

    String driverName;
    String source;
    String user;
    String options;
    String name;
    ValPtrHashtable<String, Class> classes;             // owns its classes
    ValPtrHashtable<String, Association> associations;  // owns its associations
    int version = 0;
    DBDriver* driver = nullptr;           // owned; null while closed
    FailureReporter* failures = nullptr;  // the driver, where it reports kinds; else null
    std::unique_ptr<UnitOfWork> transactions;
    std::unique_ptr<ObjectCache> objects;
    std::unique_ptr<DriverDoor> door;
    std::unique_ptr<ReferenceLoader> references;
    std::ostream* trace = nullptr;  // borrowed; null while not traced
    mutable ThreadCheck threadCheck;
    std::shared_ptr<bool> life = std::make_shared<bool>(true);

    // What the two tables hold, in the order of declaration.
    std::vector<Class*> classOrder;
    std::vector<Association*> associationOrder;

    // Declaring failed before its end: the next open starts it anew.
    bool isHalfDeclared = false;

    // Set by a synchronisation whose error handler returned.
    bool schemaFailed = false;

    // Of a driver that is gone, and the errors of this thread when the model
    // forgot what had failed before.
    FailureKind savedFailure = FailureKind::None;
    std::uint64_t errorsBefore = 0;

    // --- guarded by myMutex ---
    static Mutex myMutex;
    static PtrList<DriverCache> myDriverCache;
    static int myDriverCacheSize;
};

}  // namespace Kes
