// Two sessions that want the same object.

#include <atomic>
#include <chrono>
#include <thread>

#include "Sessions.h"
#include "Topics.h"

namespace Kes::check {

namespace {

// A commit that somebody else has forestalled: it names class and object, and
// leaves no trace.
void expectConflict(Check& check, const Sessions& sessions, const Raised& raised,
                    unsigned long id) {
    check.expectEqual<std::string>("COMFAIL", raised.code, "the code of the conflict");
    check.expect(raised.names(sessions.name) && raised.names(std::to_string(id)),
                 "the conflict does not name class and object: " + raised.message);
}

Raised committing(CheckModel& session) {
    return raisedBy([&] { session.commit(); });
}

void updateTwice(Check& check) {
    Sessions sessions(check, "updateupdate");
    const unsigned long id = sessions.store(1)[0];
    Object* mine = sessions.get(sessions.one, id);
    Object* theirs = sessions.get(sessions.two, id);
    transact(sessions.one, [&] { Sessions::change(*mine, 11); });
    sessions.two.startTransaction();
    Sessions::change(*theirs, 22);
    expectConflict(check, sessions, committing(sessions.two), id);
    check.expectEqual(11, sessions.stored(id), "the stored value");
    check.expectEqual(0UL, theirs->getVersion(), "the version in memory of the second session");
    theirs->refresh();
    check.expectEqual(11, Sessions::valueOf(*theirs), "the value after a refresh");
    transact(sessions.two, [&] { Sessions::change(*theirs, 33); });
    check.expectEqual(33, sessions.stored(id), "the value of the second try");
}

void updateAtTheSameTime(Check& check) {
    Sessions sessions(check, "overlap");
    const unsigned long id = sessions.store(1)[0];
    sessions.one.startTransaction();
    sessions.two.startTransaction();
    Sessions::change(*sessions.get(sessions.one, id), 11);
    Sessions::change(*sessions.get(sessions.two, id), 22);
    sessions.one.commit();
    expectConflict(check, sessions, committing(sessions.two), id);
    check.expectEqual(11, sessions.stored(id), "the stored value");
}

void updateRemoved(Check& check) {
    Sessions sessions(check, "updateremoved");
    const unsigned long id = sessions.store(1)[0];
    Object* theirs = sessions.get(sessions.two, id);
    transact(sessions.one, [&] { sessions.get(sessions.one, id)->remove(); });
    sessions.two.startTransaction();
    Sessions::change(*theirs, 22);
    expectConflict(check, sessions, committing(sessions.two), id);
    check.expectEqual(-1, sessions.stored(id), "a removed object that was updated");
}

void removeUpdated(Check& check) {
    Sessions sessions(check, "removeupdated");
    const unsigned long id = sessions.store(1)[0];
    Object* theirs = sessions.get(sessions.two, id);
    transact(sessions.one, [&] { Sessions::change(*sessions.get(sessions.one, id), 11); });
    sessions.two.startTransaction();
    theirs->remove();
    expectConflict(check, sessions, committing(sessions.two), id);
    check.expectEqual(11, sessions.stored(id), "an updated object that was removed");
    check.expect(!theirs->isRemoved(), "the object is removed in memory after the conflict");
}

// Either the second one fails or it has nothing left to do.
void removeTwice(Check& check) {
    Sessions sessions(check, "removeremove");
    const unsigned long id = sessions.store(1)[0];
    Object* theirs = sessions.get(sessions.two, id);
    transact(sessions.one, [&] { sessions.get(sessions.one, id)->remove(); });
    sessions.two.startTransaction();
    theirs->remove();
    const Raised raised = committing(sessions.two);
    if (raised)
        expectConflict(check, sessions, raised, id);
    check.expectEqual(-1, sessions.stored(id), "an object that was removed twice");
}

// One conflict among a thousand actions leaves nothing of the others.
void conflictInTheMiddle(Check& check) {
    constexpr int count = 1000;
    Sessions sessions(check, "middle");
    const std::vector<unsigned long> ids = sessions.store(count);
    Selection selection(sessions.two[sessions.name]);
    selection.orderBy(selection["KesObjectID"]);  // as the ids are
    const std::vector<Pointer<Object>> all = allOf(selection);
    transact(sessions.one, [&] { Sessions::change(*sessions.get(sessions.one, ids[500]), -5); });
    unsigned long added = 0;
    sessions.two.startTransaction();
    for (int i = 0; i < count; ++i)
        if (i % 5 == 4)
            all[static_cast<std::size_t>(i)]->remove();
        else
            Sessions::change(*all[static_cast<std::size_t>(i)], i + 7000);
    added = sessions.two.make(sessions.name)->getObjectID();
    expectConflict(check, sessions, committing(sessions.two), ids[500]);
    check.expectEqual(-1, sessions.stored(added), "an object that was added beside the conflict");
    CheckModel reader(check, sessions.name,
                      {Shape(sessions.name).field("value", Kind::Int).field("word", Kind::Text)});
    reader.open();
    for (int i = 0; i < count; ++i) {
        Object* object = reader.find(sessions.name, ids[static_cast<std::size_t>(i)]);
        if (!check.expect(object != nullptr, "a removal beside the conflict is stored"))
            continue;
        check.expectEqual(i == 500 ? -5 : i, Sessions::valueOf(*object), "a value");
        check.expectEqual(i == 500 ? 1UL : 0UL, object->getVersion(), "a version");
        check.expectEqual(0UL, all[static_cast<std::size_t>(i)]->getVersion(),
                          "a version in memory");
    }
    all[500]->refresh();
    transact(sessions.two, [&] {
        for (const Pointer<Object>& object : all)
            Sessions::change(*object, 1);
    });
    check.expectEqual(1, sessions.stored(ids[500]), "the value of the second try");
}

void writeDifferentObjects(Check& check) {
    Sessions sessions(check, "different");
    const std::vector<unsigned long> ids = sessions.store(2);
    sessions.one.startTransaction();
    sessions.two.startTransaction();
    Sessions::change(*sessions.get(sessions.one, ids[0]), 11);
    Sessions::change(*sessions.get(sessions.two, ids[1]), 22);
    sessions.one.commit();
    sessions.two.commit();
    check.expectEqual(11, sessions.stored(ids[0]), "the first session's object");
    check.expectEqual(22, sessions.stored(ids[1]), "the second session's object");
}

void refreshUnchanged(Check& check) {
    Sessions sessions(check, "unchanged");
    Object* object = sessions.get(sessions.two, sessions.store(3)[2]);
    Ear ear;
    object->getClass()->addListener(&ear);
    object->refresh();
    check.expectEqual(0, ear.changed + ear.removed, "events for an object that did not change");
    check.expectEqual(2, Sessions::valueOf(*object), "the value");
    object->getClass()->removeListener(&ear);
}

void refreshChanged(Check& check) {
    Sessions sessions(check, "changed");
    const unsigned long id = sessions.store(1)[0];
    Object* object = sessions.get(sessions.two, id);
    Ear ear;
    object->getClass()->addListener(&ear);
    transact(sessions.one, [&] { Sessions::change(*sessions.get(sessions.one, id), 11); });
    object->refresh();
    check.expectEqual(1, ear.changed, "change events");
    check.expectEqual(0, ear.removed, "removal events");
    check.expectEqual(11, Sessions::valueOf(*object), "the value");
    check.expectEqual(1UL, object->getVersion(), "the version");
    object->refresh();
    check.expectEqual(1, ear.changed, "change events after a second refresh");
    object->getClass()->removeListener(&ear);
}

void refreshRemoved(Check& check) {
    Sessions sessions(check, "removed");
    const unsigned long id = sessions.store(1)[0];
    Object* object = sessions.get(sessions.two, id);
    Ear ear;
    object->getClass()->addListener(&ear);
    transact(sessions.one, [&] { sessions.get(sessions.one, id)->remove(); });
    object->refresh();
    check.expectEqual(0, ear.changed, "change events");
    check.expectEqual(1, ear.removed, "removal events");
    check.expect(object->isRemoved(), "the object is not marked as removed");
    object->getClass()->removeListener(&ear);
}

// A query brings an object up to date and tells nobody; the model does, with the
// next refresh, when the driver has handed the object to Model::set.
void refreshBehindAQuery(Check& check) {
    Sessions sessions(check, "queried");
    const unsigned long id = sessions.store(1)[0];
    Object* object = sessions.get(sessions.two, id);
    Ear ear;
    object->getClass()->addListener(&ear);
    transact(sessions.one, [&] { Sessions::change(*sessions.get(sessions.one, id), 11); });
    Selection all(sessions.two[sessions.name]);
    while (all.next())
        continue;
    check.expectEqual(11, Sessions::valueOf(*object), "the value after the query");
    check.expectEqual(0, ear.changed, "change events of the query");
    object->refresh();
    object->refresh();
    check.expectEqual(1, ear.changed, "change events of the refreshes after it");
    object->getClass()->removeListener(&ear);
}

// A refresh does not take a pending change away.
void refreshPending(Check& check) {
    Sessions sessions(check, "pending");
    const unsigned long id = sessions.store(1)[0];
    Object* object = sessions.get(sessions.two, id);
    transact(sessions.one, [&] { Sessions::change(*sessions.get(sessions.one, id), 11); });
    sessions.two.startTransaction();
    Sessions::change(*object, 22);
    object->refresh();
    check.expectEqual(22, Sessions::valueOf(*object), "the pending value");
    expectConflict(check, sessions, committing(sessions.two), id);
    check.expectEqual(11, sessions.stored(id), "the stored value");
}

// An object whose handle fails in the middle shows the version before or the one
// behind, and no half of either.
void refreshInterrupted(Check& check, bool isQuery) {
    Sessions sessions(check, isQuery ? "queryhalf" : "refreshhalf");
    const unsigned long id = sessions.store(1)[0];
    Object* object = sessions.get(sessions.two, id);
    transact(sessions.one, [&] {
        Object* mine = sessions.get(sessions.one, id);
        Sessions::change(*mine, 11);
        (*mine)["word"] = String("new");
    });
    for (int reports = 1; reports < 50 && object->getVersion() == 0; ++reports) {
        object->throwBehind(reports);
        try {
            Selection all(sessions.two[sessions.name]);
            if (isQuery)
                while (all.next())
                    continue;
            else
                object->refresh();
        } catch (const std::exception&) {
        } catch (const Exception&) {}
        object->throwBehind(0);
        const bool isNew = object->getVersion() == 1;
        check.expectEqual(isNew ? 11 : 0, Sessions::valueOf(*object), "the first field");
        check.expect(std::get<String>((*object)["word"]) == (isNew ? "new" : ""),
                     "the second field belongs to another version than the first");
    }
    check.expectEqual(1UL, object->getVersion(), "the version after an undisturbed load");
}

void refreshInTransaction(Check& check) {
    Sessions sessions(check, "within");
    const std::vector<unsigned long> ids = sessions.store(2);
    Object* object = sessions.get(sessions.two, ids[0]);
    Object* other = sessions.get(sessions.two, ids[1]);
    sessions.two.startTransaction();
    Sessions::change(*other, 5);
    transact(sessions.one, [&] { Sessions::change(*sessions.get(sessions.one, ids[0]), 11); });
    object->refresh();
    check.expectEqual(11, Sessions::valueOf(*object), "the value after a refresh");
    Sessions::change(*object, 12);
    sessions.two.commit();
    check.expectEqual(12, sessions.stored(ids[0]), "the stored value");
}

void lockAndChange(Check& check) {
    Sessions sessions(check, "lock");
    const unsigned long id = sessions.store(1)[0];
    Object* object = sessions.get(sessions.one, id);
    transact(sessions.one, [&] {
        object->lock();
        object->lock();
        Sessions::change(*object, 11);
    });
    check.expectEqual(11, sessions.stored(id), "the stored value");
    transact(sessions.two, [&] { Sessions::change(*sessions.get(sessions.two, id), 22); });
    check.expectEqual(22, sessions.stored(id), "the value that is stored after the lock");
}

void lockChanged(Check& check, bool isRemoved) {
    Sessions sessions(check, isRemoved ? "lockremoved" : "lockchanged");
    const unsigned long id = sessions.store(1)[0];
    Object* theirs = sessions.get(sessions.two, id);
    transact(sessions.one, [&] {
        Object* mine = sessions.get(sessions.one, id);
        isRemoved ? mine->remove() : Sessions::change(*mine, 11);
    });
    sessions.two.startTransaction();
    const Raised raised = raisedBy([&] { theirs->lock(); });
    check.expectEqual<std::string>("LOCKFAIL", raised.code, "the code of the refused lock");
    check.expect(raised.names(sessions.name) && raised.names(std::to_string(id)),
                 "the refusal does not name class and object: " + raised.message);
    sessions.store(1);
}

// Another session that writes the locked object waits or fails; nothing of it
// is stored while the lock is held.
void lockAgainstOthers(Check& check, bool isCommitted) {
    Sessions sessions(check, isCommitted ? "lockcommit" : "lockrollback");
    const unsigned long id = sessions.store(1)[0];
    Object* mine = sessions.get(sessions.one, id);
    sessions.one.startTransaction();
    mine->lock();
    std::atomic<bool> isDone{false};
    Raised raised;
    std::jthread other([&] {
        raised = raisedBy([&] {
            CheckModel third(
                check, sessions.name,
                {Shape(sessions.name).field("value", Kind::Int).field("word", Kind::Text)});
            third.open();
            transact(third, [&] { Sessions::change(*third.get(sessions.name, id), 22); });
        });
        isDone = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    const bool wasStored = isDone && !raised;
    if (isCommitted)
        Sessions::change(*mine, 11);
    isCommitted ? sessions.one.commit() : sessions.one.rollback();
    other.join();
    check.expect(!wasStored, "another session changes an object that is locked");
    if (isCommitted)
        check.expect(static_cast<bool>(raised), "the other session overwrites the change");
    check.expectEqual(isCommitted ? 11 : raised ? 0 : 22, sessions.stored(id), "the stored value");
}

// A second lock waits or fails; here it fails in any case, since the first
// session changes the object before it lets go.
void lockLocked(Check& check) {
    Sessions sessions(check, "locklock");
    const unsigned long id = sessions.store(1)[0];
    Object* mine = sessions.get(sessions.one, id);
    sessions.one.startTransaction();
    mine->lock();
    std::atomic<bool> isLocked{false};
    Raised raised;
    std::jthread other([&] {
        raised = raisedBy([&] {
            CheckModel third(
                check, sessions.name,
                {Shape(sessions.name).field("value", Kind::Int).field("word", Kind::Text)});
            third.open();
            third.startTransaction();
            third.get(sessions.name, id)->lock();
            isLocked = true;
            third.rollback();
        });
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    check.expect(!isLocked, "two sessions lock one object");
    Sessions::change(*mine, 11);
    sessions.one.commit();
    other.join();
    check.expectEqual<std::string>("LOCKFAIL", raised.code, "the code of the second lock");
    check.expectEqual(11, sessions.stored(id), "the stored value");
}

}  // namespace

void addConflictChecks(Suite& suite) {
    suite.add("conflicts.update-update", updateTwice);
    suite.add("conflicts.update-update-overlapping", updateAtTheSameTime);
    suite.add("conflicts.update-removed", updateRemoved);
    suite.add("conflicts.remove-updated", removeUpdated);
    suite.add("conflicts.remove-removed", removeTwice);
    suite.add("conflicts.in-the-middle", conflictInTheMiddle);
    suite.add("conflicts.different-objects", writeDifferentObjects);
    suite.add("refresh.unchanged", refreshUnchanged);
    suite.add("refresh.changed", refreshChanged);
    suite.add("refresh.removed", refreshRemoved);
    suite.add("refresh.behind-a-query", refreshBehindAQuery);
    suite.add("refresh.pending", refreshPending);
    suite.add("refresh.interrupted", [](Check& c) { refreshInterrupted(c, false); });
    suite.add("refresh.interrupted-query", [](Check& c) { refreshInterrupted(c, true); });
    suite.add("refresh.in-a-transaction", refreshInTransaction);
    suite.add("lock.and-change", lockAndChange);
    suite.add("lock.of-changed", [](Check& c) { lockChanged(c, false); });
    suite.add("lock.of-removed", [](Check& c) { lockChanged(c, true); });
    suite.add("lock.of-locked", lockLocked);
    suite.add("lock.against-others-committed", [](Check& c) { lockAgainstOthers(c, true); });
    suite.add("lock.against-others-rolled-back", [](Check& c) { lockAgainstOthers(c, false); });
}

}  // namespace Kes::check
