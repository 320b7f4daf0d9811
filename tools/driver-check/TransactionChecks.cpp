// Commit and rollback of one session.

#include <set>

#include "Sessions.h"
#include "Topics.h"

namespace Kes::check {

namespace {

void rollBackAdd(Check& check) {
    Sessions sessions(check, "add");
    sessions.one.startTransaction();
    const Pointer<Object> object(sessions.one.make(sessions.name));
    const unsigned long id = object->getObjectID();
    check.expect(id != 0, "a new object has no id");
    sessions.one.rollback();
    check.expectEqual(-1, sessions.stored(id), "an object whose addition was rolled back");
}

void rollBackChange(Check& check) {
    Sessions sessions(check, "change");
    const unsigned long id = sessions.store(5)[4];
    Object* object = sessions.get(sessions.one, id);
    sessions.one.startTransaction();
    Sessions::change(*object, 70);
    sessions.one.rollback();
    check.expectEqual(4, Sessions::valueOf(*object), "the value in memory");
    check.expectEqual(0UL, object->getVersion(), "the version in memory");
    check.expectEqual(4, sessions.stored(id), "the stored value");
    transact(sessions.one, [&] { Sessions::change(*object, 71); });
    check.expectEqual(71, sessions.stored(id), "the value stored after a rollback");
}

void rollBackRemoval(Check& check) {
    Sessions sessions(check, "removal");
    const unsigned long id = sessions.store(1)[0];
    Object* object = sessions.get(sessions.one, id);
    sessions.one.startTransaction();
    object->remove();
    sessions.one.rollback();
    check.expect(!object->isRemoved(), "the object is removed in memory after the rollback");
    check.expectEqual(0, sessions.stored(id), "the stored value");
    transact(sessions.one, [&] { Sessions::change(*object, 3); });
    check.expectEqual(3, sessions.stored(id), "the value stored after a rollback");
}

void removeObject(Check& check) {
    Sessions sessions(check, "gone");
    const std::vector<unsigned long> ids = sessions.store(3);
    transact(sessions.one, [&] { sessions.get(sessions.one, ids[1])->remove(); });
    check.expectEqual(-1, sessions.stored(ids[1]), "a removed object");
    check.expectEqual(2, sessions.stored(ids[2]), "an object beside it");
    Selection selection(sessions.two[sessions.name]);
    check.expectEqual<std::size_t>(2, idsOf(selection).size(), "objects that are left");
}

void commitNothing(Check& check) {
    Sessions sessions(check, "nothing");
    for (int i = 0; i < 3; ++i)
        transact(sessions.one, [] {});
    sessions.one.startTransaction();
    sessions.one.rollback();
    sessions.one.rollback();
    const unsigned long id = sessions.store(1)[0];
    check.expectEqual(0, sessions.stored(id), "the value stored after empty transactions");
}

// Several actions on one object are its net effect.
void actTwice(Check& check) {
    Sessions sessions(check, "twice");
    const std::vector<unsigned long> ids = sessions.store(3);
    unsigned long fleeting = 0;
    unsigned long fresh = 0;
    transact(sessions.one, [&] {
        Object* added = sessions.one.make(sessions.name);
        fleeting = added->getObjectID();
        added->remove();
        Object* changed = sessions.one.make(sessions.name);
        fresh = changed->getObjectID();
        Sessions::change(*changed, 12);
        Object* object = sessions.get(sessions.one, ids[0]);
        Sessions::change(*object, 13);
        Sessions::change(*object, 14);
        Object* removed = sessions.get(sessions.one, ids[1]);
        Sessions::change(*removed, 15);
        removed->remove();
    });
    check.expectEqual(-1, sessions.stored(fleeting), "an object that was added and removed");
    check.expectEqual(12, sessions.stored(fresh), "an object that was added and changed");
    check.expectEqual(14, sessions.stored(ids[0]), "an object that was changed twice");
    check.expectEqual(-1, sessions.stored(ids[1]), "an object that was changed and removed");
    check.expectEqual(1UL, sessions.get(sessions.two, ids[0])->getVersion(),
                      "the version of an object that was changed twice at once");
}

void countVersions(Check& check) {
    Sessions sessions(check, "version");
    const unsigned long id = sessions.store(1)[0];
    Object* object = sessions.get(sessions.one, id);
    for (int i = 1; i <= 5; ++i) {
        transact(sessions.one, [&] { Sessions::change(*object, i * 10); });
        check.expectEqual(static_cast<unsigned long>(i), object->getVersion(), "the version");
        CheckModel reader(
            check, sessions.name,
            {Shape(sessions.name).field("value", Kind::Int).field("word", Kind::Text)});
        reader.open();
        check.expectEqual(static_cast<unsigned long>(i),
                          reader.get(sessions.name, id)->getVersion(), "the stored version");
    }
}

void hideUncommitted(Check& check) {
    Sessions sessions(check, "hidden");
    const std::vector<unsigned long> ids = sessions.store(2);
    sessions.one.startTransaction();
    sessions.one.make(sessions.name);
    Sessions::change(*sessions.get(sessions.one, ids[0]), 50);
    sessions.get(sessions.one, ids[1])->remove();
    Selection selection(sessions.two[sessions.name]);
    const std::vector<Pointer<Object>> seen = allOf(selection);
    check.expectEqual<std::size_t>(2, seen.size(), "objects that another session sees");
    check.expectEqual(0, sessions.stored(ids[0]), "a value before its commit");
    sessions.one.commit();
    Selection later(sessions.two[sessions.name]);
    check.expectEqual<std::size_t>(2, idsOf(later).size(), "objects after the commit");
    check.expectEqual(50, sessions.stored(ids[0]), "a value after its commit");
}

// What a selection meets is brought up to date, unless it waits for a commit.
void bringUpToDate(Check& check) {
    Sessions sessions(check, "fresh");
    const std::vector<unsigned long> ids = sessions.store(3);
    Object* seen = sessions.get(sessions.two, ids[0]);
    Object* pending = sessions.get(sessions.two, ids[1]);
    transact(sessions.one, [&] {
        Sessions::change(*sessions.get(sessions.one, ids[0]), 80);
        Sessions::change(*sessions.get(sessions.one, ids[1]), 81);
    });
    sessions.two.startTransaction();
    Sessions::change(*pending, 90);
    Selection selection(sessions.two[sessions.name]);
    check.expectEqual<std::size_t>(3, idsOf(selection).size(), "objects selected");
    check.expectEqual(80, Sessions::valueOf(*seen), "a value that another session has changed");
    check.expectEqual(1UL, seen->getVersion(), "its version");
    check.expectEqual(90, Sessions::valueOf(*pending), "a value with a pending change");
    sessions.two.rollback();
}

void useEachObjectOnce(Check& check) {
    Sessions sessions(check, "once");
    const unsigned long id = sessions.store(2)[1];
    Object* known = sessions.get(sessions.two, id);
    Selection selection(sessions.two[sessions.name]);
    selection.where(selection["value"] == 1);
    check.require(selection.next(), "the object is not found");
    check.expect(selection.value() == known, "a query makes a second object of a stored one");
    check.expect(sessions.two.find(sessions.name, id) == known,
                 "a look-up makes a second object of a stored one");
}

void storeThousands(Check& check) {
    constexpr int count = 20000;
    Sessions sessions(check, "thousands");
    const std::vector<unsigned long> ids = sessions.store(count);
    check.expectEqual(ids.size(), std::set<unsigned long>(ids.begin(), ids.end()).size(),
                      "different ids");
    transact(sessions.two, [&] {
        Selection selection(sessions.two[sessions.name]);
        while (selection.next()) {
            auto& object = *static_cast<Object*>(selection.value());
            const int value = Sessions::valueOf(object);
            if (value % 3 == 0)
                object.remove();
            else if (value % 3 == 1)
                Sessions::change(object, -value);
        }
    });
    CheckModel reader(check, sessions.name,
                      {Shape(sessions.name).field("value", Kind::Int).field("word", Kind::Text)});
    reader.open();
    Selection left(reader[sessions.name]);
    long sum = 0;
    long wanted = 0;
    std::size_t found = 0;
    for (; left.next(); ++found)
        sum += Sessions::valueOf(*static_cast<Object*>(left.value()));
    for (int i = 0; i < count; ++i)
        wanted += i % 3 == 1 ? -i : i % 3 == 2 ? i : 0;
    check.expectEqual<std::size_t>(count - (count + 2) / 3, found, "objects left");
    check.expectEqual(wanted, sum, "the sum of their values");
}

void rollBackThousands(Check& check) {
    constexpr int count = 20000;
    Sessions sessions(check, "rolledback");
    const std::vector<unsigned long> ids = sessions.store(10);
    sessions.one.startTransaction();
    for (int i = 0; i < count; ++i)
        sessions.one.make(sessions.name);
    for (const unsigned long id : ids)
        sessions.get(sessions.one, id)->remove();
    sessions.one.rollback();
    Selection selection(sessions.two[sessions.name]);
    check.expectEqual<std::size_t>(10, idsOf(selection).size(), "objects after the rollback");
}

// Also of objects that are gone, and after the session was closed.
void neverReuseIds(Check& check) {
    Sessions sessions(check, "ids");
    std::set<unsigned long> ids;
    std::size_t count = 0;
    for (int round = 0; round < 5; ++round) {
        for (CheckModel* session : {&sessions.one, &sessions.two})
            transact(*session, [&] {
                for (int i = 0; i < 200; ++i, ++count) {
                    Object* object = session->make(sessions.name);
                    ids.insert(object->getObjectID());
                    if (i % 2 == 0)
                        object->remove();
                }
            });
        sessions.one.startTransaction();
        ids.insert(sessions.one.make(sessions.name)->getObjectID());
        ++count;
        sessions.one.rollback();
        sessions.one.close();
        sessions.one.open();
    }
    check.expectEqual(count, ids.size(), "different ids");
}

void findById(Check& check) {
    Sessions sessions(check, "byid");
    const std::vector<unsigned long> ids = sessions.store(2);
    check.expect(sessions.two.find(sessions.name, ids[1]) != nullptr, "a stored object is missing");
    check.expect(sessions.two.find(sessions.name, ids[1] + 1000000) == nullptr,
                 "an object is found by an id that nobody has");
    check.expect(sessions.two.find(sessions.name, 0) == nullptr, "an object has the id 0");
    check.expect(sessions.two.find(sessions.name, ~0UL) == nullptr,
                 "an object has the largest id of all");
}

}  // namespace

void addTransactionChecks(Suite& suite) {
    suite.add("transactions.added-and-rolled-back", rollBackAdd);
    suite.add("transactions.changed-and-rolled-back", rollBackChange);
    suite.add("transactions.removed-and-rolled-back", rollBackRemoval);
    suite.add("transactions.removed", removeObject);
    suite.add("transactions.empty", commitNothing);
    suite.add("transactions.several-actions-on-one-object", actTwice);
    suite.add("transactions.versions-counted", countVersions);
    suite.add("transactions.hidden-before-the-commit", hideUncommitted);
    suite.add("transactions.brought-up-to-date-by-queries", bringUpToDate);
    suite.add("transactions.one-object-in-memory", useEachObjectOnce);
    suite.add("transactions.thousands", storeThousands);
    suite.add("transactions.thousands-rolled-back", rollBackThousands);
    suite.add("transactions.ids-never-again", neverReuseIds);
    suite.add("transactions.found-by-id", findById);
}

}  // namespace Kes::check
