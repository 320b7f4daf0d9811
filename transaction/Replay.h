// Replay of the undo log: records the actions that reverse one of its records.
//
// All objects that a commit touched are compared with what the steps remember
// before anything is changed in memory. Then the reversal goes the way that an
// application would go: fields are assigned, links are made and dissolved with
// the operations of Instance, and objects are removed, so both sides of every
// reference follow and the reversal is a transaction like any other.
//
// Links are worked off by what has to be there in the end. A one-to-one link
// that moved has taken partners from others, so all such links are dissolved
// before the first is made again.

#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include <kes/Forward.h>
#include <kes/Instance.h>

#include "transaction/History.h"

namespace Kes {

class UnitOfWork;
struct Changes;

class Replay {
public:
    /// Somebody else has changed or removed an object.
    struct Conflict {};

    /// The database failed, and the error handler returned.
    struct Abandoned {};

    /// All are borrowed; `recorder` records into `itsChanges`.
    Replay(Model* itsModel, UnitOfWork& recorder, Changes& itsChanges)
        : model(itsModel),
          transactions(recorder),
          changes(itsChanges) {}

    /// Throws one of the above, or what the driver or a handler throws.
    void run(const History::Record& record);

    /// Before the rollback of a run that failed.
    void giveUp();

private:
    void reverse(const CommittedSteps& commit);

    // Comparing.
    void check(const Step& step);
    void checkPending(const Step& step, Instance* object) const;
    void checkEnd(unsigned long id, Class* cls);
    Instance* find(unsigned long id, Class* cls);
    Instance* findEnd(unsigned long id, Class* cls);
    Instance* load(unsigned long id, Class* cls);
    Instance* readStored(unsigned long id, Class* cls);
    bool isStored(Instance* reading);
    Instance* pin(Instance* object);

    // Reversing.
    void revive(const Step& step, const SnapshotStore& snapshots);
    void restore(const Step& step, const SnapshotStore& snapshots);
    void unpair(const Step& step);
    void point(const Step& step);
    void relink(const Step& step);
    void remove(const Step& step);
    Class* partnerClass(const Step& step) const;

    Model* model;
    UnitOfWork& transactions;
    Changes& changes;
    std::unordered_map<Class*, std::unique_ptr<Instance>> readers;
    std::unordered_set<const Instance*> revived;  // by the commit at hand
    std::unordered_set<unsigned long> knownEnds;
    std::vector<Instance*> doomed;  // marked as removed
};

}  // namespace Kes
