// Recorded changes, from their recording to the commit or the rollback.
//
// A change is an entry of one list; an instance knows the position of its own
// entry, so recording the n-th change looks at none of the others. What links
// do to references in memory stands in a journal of its own, which a rollback
// works off backwards.
//
// An update or removal remembers the fields as they are stored. The application may call
// change() after it has assigned members, so the digest of the stored fields,
// kept by each instance, tells whether memory still shows them; when it does
// not, the driver reads them once more.
//
// Where it cannot, the change is refused, though what was assigned is in memory.
// Such an instance gets a version that nothing stored has: no driver writes it,
// and any refresh reads it. The transaction does not commit, and its rollback
// reads the instance again.
//
// What the database holds of links is what their calls say, each of its two
// instances, and that is not always what memory shows: whoever loses a partner to
// another one goes on to show it until the commit. So the commit works out where
// the references lead that such calls concern, in LinkOutcome. The history gets
// that, and references in memory that say something else become unfetched. The
// driver tells of rows that no call names.

#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

#include <kes/EmptiedReferences.h>
#include <kes/FieldSet.h>
#include <kes/Forward.h>
#include <kes/OneAssociatedInstance.h>
#include <kes/String.h>

#include "query/DriverDoor.h"
#include "transaction/FieldImage.h"
#include "transaction/History.h"
#include "transaction/LinkIndex.h"

namespace Kes {

class FirstFailure;
class Marker;

/// One recorded change.
struct Action {
    enum Kind : std::uint8_t {
        Add,
        Update,
        Remove,
        Link,
        Unlink,
        Dropped,    // an add that a removal cancelled: nothing of it is written
        Superseded  // an update or removal that a later entry stands for
    };

    Kind kind;
    bool firstIsOne = false;      // of links: `first` plays the association's first role
    bool applied = false;         // the driver has heard of it
    bool restored = false;        // of adds: the object was stored before, and removed
    bool changedNothing = false;  // of links: they were there, or gone, already
    bool isUnsure = false;        // of links: memory could not tell
    Instance* first;
    Instance* second = nullptr;          // of links
    Association* association = nullptr;  // of links
    FieldImage image = nullptr;          // of updates and removals: the stored fields
    std::uint64_t digest = 0;            // of updates and adds: what `first` had before
    unsigned long firstVersion = 0;      // before the driver heard of it
    unsigned long secondVersion = 0;
};

class UnitOfWork final : public EmptiedListener {
public:
    explicit UnitOfWork(Model* itsModel) : model(itsModel) {}
    UnitOfWork(const UnitOfWork&) = delete;
    UnitOfWork& operator=(const UnitOfWork&) = delete;

    void start();
    bool isStarted() const { return started; }
    bool hasPending() const { return !pending.empty(); }

    /// Listeners are hearing of a commit or a refresh: its objects must stay.
    bool isTelling() const { return telling > 0; }

    /// While it lives, listeners are told.
    class Telling {
    public:
        explicit Telling(UnitOfWork& itsManager) : manager(itsManager) { ++manager.telling; }
        Telling(const Telling&) = delete;
        Telling& operator=(const Telling&) = delete;
        ~Telling() { --manager.telling; }

    private:
        UnitOfWork& manager;
    };

    void recordAdd(Instance* instance);
    void recordUpdate(Instance* instance);
    void recordRemove(Instance* instance);

    /// A removal is taken back: the object is stored again under its id.
    void recordRestored(Instance* instance);

    /// Takes a pending removal back; false when none is pending. The object
    /// keeps its id, but not the links that the removal dissolved.
    bool recordRevival(Instance* instance);
    void recordLink(Action::Kind kind, Instance* first, const String& firstRole, Instance* second,
                    Association* association);

    /// The link that was recorded last had been made, or dissolved, before; or
    /// nothing in memory tells.
    void noteUnchangedLink(const Instance* first, const Instance* second);
    void noteUnsureLink(const Instance* first, const Instance* second);

    /// A driver that empties references tells of them, if it can.
    void listenTo(DBDriver* driver);
    void stopListening(DBDriver* driver);
    void referenceEmptied(Association* association, const String& role, unsigned long id,
                          Class* cls, unsigned long partner, bool raised) override;
    bool hearsOfEmptied = false;

    /// A link was recorded behind which memory may show something else than what
    /// is going to be stored.
    bool contested = false;

    /// Remember what a reference holds before a link changes it. The owner
    /// plays `role` in the association.
    void rememberReference(Instance* owner, OneAssociatedInstance& ref,
                           const Association* association, const String& role);
    void rememberMember(Instance* owner, ManyAssociatedInstances& ref, Instance* member,
                        bool added);

    /// A many-to-many link goes with both of its ends, without an action of
    /// its own.
    void rememberLostLink(Instance* owner, Instance* member, Association* association,
                          const String& role);

    void commit();
    void rollback();

    /// The driver keeps others from changing an object, until the end of the
    /// transaction; whether it did.
    void noteLock() { locked = true; }
    bool releaseLocks() { return std::exchange(locked, false); }

    /// Take the newest transaction of the history back, or bring it back.
    void turn(History::Direction direction);

    /// Lets the history and what is pending go; nothing is written.
    void close();

    /// Brings a freshly loaded collection up to date with the pending links.
    void applyPendingLinks(Instance* owner, ManyAssociatedInstances& ref,
                           const Association* association, const String& role);

    bool getChangedFields(const Instance* instance, FieldSet& fields) const;
    void markInstances(Marker& marker) const;

    History history;

private:
    friend class Replay;
    class StepWriter;
    class LinkOutcome;

    // A reference as it was before a link changed it.
    struct Remembered {
        enum Kind : std::uint8_t { One, MemberAdded, MemberRemoved, LostLink };
        Kind kind;
        bool fetched;
        bool isFirst = false;     // of this reference in this transaction
        bool ownerIsOne = false;  // the owner plays the association's first role
        Instance* owner;
        void* ref;
        Instance* instance;
        unsigned long objectID = 0;
        const Association* association = nullptr;
    };

    using Actions = std::deque<Action>;

    // A reference in memory that shows something else than what is stored.
    struct Repair {
        OneAssociatedInstance* ref;
        unsigned long partner;
    };
    struct MemberRepair {
        ManyAssociatedInstances* ref;
        Instance* member;
        bool belongs;
    };

    // What a commit leaves, with the memory for it: made before the driver
    // commits, for nothing may fail behind that.
    struct Outcome {
        History::Draft draft;
        bool isPrepared = false;
        std::vector<Step> told;  // by the driver, before the steps are written
        std::vector<Repair> repairs;
        std::vector<MemberRepair> memberRepairs;
        Actions actions;
        std::unordered_map<unsigned long, unsigned long> losses;  // of the object cache
    };

    void applyOwnLinks(Instance* owner, ManyAssociatedInstances& ref,
                       const Association* association, const String& role);
    void dropMovedMembers(Instance* owner, ManyAssociatedInstances& ref,
                          const Association* association, const String& role);
    Action& record(Action::Kind kind, Instance* first);
    void recordUpdate(Instance* instance, FieldImage image);
    enum class Stored { Found, Absent, Unknown };

    bool takeUnassigned(Instance* instance, FieldImage& image);
    bool takeForUpdate(Instance* instance, const char* operation, FieldImage& image);
    void takeForRemoval(Instance* instance, FieldImage& image);
    Stored readStored(Instance* reading, const char* operation);
    static bool isUnknown(const Instance* instance);
    void refuse(Instance* instance);
    bool hasRefused(String& failure) const;
    void rereadRefused();
    bool reread(Instance* instance, bool& isRemoved);
    bool applyAll(String& failure);
    DriverDoor& door() const;
    bool apply(Action& action, const DriverDoor::Passage& driver, String& failure);
    bool applyUpdate(Action& action, const DriverDoor::Passage& driver, String& failure);
    bool applyLink(Action& action, const DriverDoor::Passage& driver);
    void giveUp(String failure, const std::exception_ptr& told);
    std::exception_ptr takeBack(bool mayBeStored = false);
    bool isDropped(const Instance* instance) const;
    void revert(FirstFailure& failure);
    void revertReferences();
    void unfetchCollections();
    void revertAction(const Action& action);
    void restoreFields(FieldImage image, Instance* instance);
    bool keepsSteps() const;
    void noteStep(const Step& step);
    void prepareOutcome(Outcome& outcome);
    void repair(const Outcome& outcome) noexcept;
    void askForUnsureLinks();
    bool isLinked(const Action& action) const;
    bool isNew(const Instance* object) const;
    void settleHistory(Outcome& left) noexcept;
    void finish(Actions& done) noexcept;
    void forget() noexcept;
    void release() noexcept;
    void announce(Actions& committed);
    void announceOne(const Action& action);
    bool replay(History::Direction direction, bool& conflict);

    Model* model;
    bool started = false;
    bool locked = false;
    Actions pending;
    ImageStore images;
    std::vector<Remembered> journal;
    LinkIndex links;
    std::vector<const Actions*> announced;  // being told to listeners
    int telling = 0;

    // During an undo or redo: its direction, and the objects that it works on.
    std::optional<History::Direction> turning;
    std::vector<Instance*> pinned;

    // Their change was refused at least once in this transaction.
    struct Refused {
        Instance* instance;
        unsigned long version;  // that it was read with
    };
    std::vector<Refused> refused;

    // During a commit.
    Outcome* outcome = nullptr;

    // The driver has raised their rows' versions, and so were these raised.
    struct Raised {
        Instance* instance;
        unsigned long version;  // before
    };
    std::vector<Raised> raised;

    // During the driver's update.
    const Instance* updating = nullptr;
    FieldSet changed;
};

}  // namespace Kes
