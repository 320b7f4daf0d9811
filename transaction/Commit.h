// One commit: what is pending, on its way to the driver.
//
// What the database holds of links is what their calls say, each of its two
// instances, and that is not always what memory shows: whoever loses a partner to
// another one goes on to show it until the commit. So the commit works out where
// the references lead that such calls concern, in LinkOutcome. The undo log gets
// that, and references in memory that say something else become unfetched. The
// driver tells of rows that no call names.
//
// Every write of a row raises the version, once: by the object's own action, by
// its first link, or as the driver tells.

#pragma once

#include <exception>
#include <unordered_map>
#include <vector>

#include <kes/Exception.h>
#include <kes/FieldSet.h>
#include <kes/Forward.h>
#include <kes/String.h>

#include "identity/RowNews.h"
#include "query/DriverDoor.h"
#include "transaction/Changes.h"
#include "transaction/History.h"
#include "transaction/LinkOutcome.h"

namespace Kes {

/// Calls the driver, which fails by throwing as well as by answering false. What
/// else comes out of it is the application's, which its objects threw when it
/// asked them.
template <class Call>
bool succeeds(Call call, String& failure);

class Commit {
public:
    /// Model and changes are borrowed. With `itKeepsSteps` the commit can be
    /// undone.
    Commit(Model* itsModel, Changes& itsChanges, bool itKeepsSteps)
        : keepsSteps(itKeepsSteps),
          model(itsModel),
          changes(itsChanges) {}
    Commit(const Commit&) = delete;
    Commit& operator=(const Commit&) = delete;

    /// Hands all changes to the driver and has it commit. False when it refuses,
    /// with its words where it threw them.
    bool run(String& failure);

    /// See Model::getChangedFields.
    bool getChangedFields(const Instance* instance, FieldSet& fields) const;

    /// See EmptiedListener.
    void referenceEmptied(Association* association, const String& role, unsigned long id,
                          Class* cls, unsigned long partner, bool isRaised);

    // What it leaves, with the memory for it: made before the driver commits, for
    // nothing may fail after that.
    History::Draft draft;
    Repairs repairs;
    Changes::Actions actions;  // room for the pending ones
    RowNews::Entries news;     // for open selections

private:
    bool applyAll(String& failure);
    bool apply(Action& action, const DriverDoor::Passage& driver, String& failure);
    bool applyUpdate(Action& action, const DriverDoor::Passage& driver, String& failure);
    bool applyLink(Action& action, const DriverDoor::Passage& driver);
    void prepare();
    void prepareNews();

    const bool keepsSteps;
    Model* model;
    Changes& changes;
    bool isPrepared = false;
    std::vector<Step> told;  // by the driver, before the steps are written

    // During the driver's update.
    const Instance* updating = nullptr;
    FieldSet changed;
};

template <class Call>
bool succeeds(Call call, String& failure) {
    try {
        return call();
    } catch (const Exception& thrown) {
        failure = thrown.getMessage();
    } catch (const std::exception& thrown) {
        failure = thrown.what();
    }
    return false;
}

}  // namespace Kes
