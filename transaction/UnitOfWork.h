// Unit of work: the changes of a transaction, from their recording to the commit
// or the rollback.
//
// It keeps what is added, changed, removed and linked (Changes), and says what
// becomes of it; plain functions and Commit do the work. Whatever fails, and
// whoever throws, by the time that the caller gets it memory and database are as
// before the transaction, and the failure is told once.

#pragma once

#include <exception>
#include <optional>
#include <utility>
#include <vector>

#include <kes/EmptiedReferences.h>
#include <kes/FieldSet.h>
#include <kes/Forward.h>
#include <kes/String.h>

#include "transaction/Changes.h"
#include "transaction/History.h"

namespace Kes {

class Commit;
class Marker;

class UnitOfWork final : public EmptiedListener {
public:
    explicit UnitOfWork(Model* itsModel) : model(itsModel) {}
    UnitOfWork(const UnitOfWork&) = delete;
    UnitOfWork& operator=(const UnitOfWork&) = delete;

    void start();
    bool isStarted() const { return started; }
    bool hasPending() const { return !changes.pending.empty(); }

    /// Listeners are hearing of a commit or a refresh: its objects must stay.
    bool isTelling() const { return telling > 0; }

    /// While it lives, listeners are told.
    class Telling {
    public:
        explicit Telling(UnitOfWork& itsUnit) : unit(itsUnit) { ++unit.telling; }
        Telling(const Telling&) = delete;
        Telling& operator=(const Telling&) = delete;
        ~Telling() { --unit.telling; }

    private:
        UnitOfWork& unit;
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

    /// For the reference journal and for links that are pending.
    Changes& getChanges() { return changes; }

    /// A driver that empties references tells of them, if it can.
    void listenTo(DBDriver* driver);
    void stopListening(DBDriver* driver);
    bool hearsOfEmptied() const { return isListening; }
    void referenceEmptied(Association* association, const String& role, unsigned long id,
                          Class* cls, unsigned long partner, bool raised) override;

    void commit();
    void rollback();

    /// The driver keeps others from changing an object, until the end of the
    /// transaction; whether it did.
    void noteLock() { locked = true; }
    bool releaseLocks() { return std::exchange(locked, false); }

    /// Take the newest transaction of the history back, or bring it back.
    void reverse(History::Direction direction);
    History& getHistory() { return history; }

    /// Lets the history and what is pending go; nothing is written.
    void close();

    bool getChangedFields(const Instance* instance, FieldSet& fields) const;
    void markInstances(Marker& marker) const;

private:
    Action& record(Action::Kind kind, Instance* first);
    Action* entryOf(const Instance* instance);
    void recordUpdate(Instance* instance, Snapshot snapshot);
    void giveUp(String failure, const std::exception_ptr& told);
    std::exception_ptr revertAll(bool mayBeStored = false);
    bool keepsSteps() const;
    void updateHistory(Commit& done) noexcept;
    void forget() noexcept;
    void release() noexcept;
    void announce(const Changes::Actions& committed);
    static void announceOne(const Action& action);
    bool replay(History::Direction direction, bool& conflict);

    Model* model;
    bool started = false;
    bool locked = false;
    bool isListening = false;
    Changes changes;
    History history;
    Commit* underWay = nullptr;                      // the commit
    std::vector<const Changes::Actions*> announced;  // being told to listeners
    int telling = 0;
    std::optional<History::Direction> reversing;  // during an undo or redo
};

}  // namespace Kes
