// Several models at once, and what undo takes back in the database.

#include <thread>

#include "Sessions.h"
#include "Topics.h"

namespace Kes::check {

namespace {

std::vector<Shape> shapesOf(const std::string& name) {
    return {Shape(name).field("value", Kind::Int).many("Link" + name, "others"),
            Shape(name + "Other").field("value", Kind::Int).one("Link" + name, "owner")};
}

std::vector<int> valuesOf(Check& check, const std::string& name) {
    CheckModel reader(check, name, shapesOf(name));
    reader.open();
    Selection selection(reader[name]);
    selection.orderBy(selection["value"], true);
    std::vector<int> values;
    while (selection.next())
        values.push_back(Sessions::valueOf(*static_cast<Object*>(selection.value())));
    return values;
}

// Models of different declarations are in the middle of their transactions at
// the same time, and end them in another order.
void interleaveModels(Check& check) {
    const std::vector<std::string> names{"ModelOne", "ModelTwo", "ModelThree"};
    std::vector<std::unique_ptr<CheckModel>> models;
    for (const std::string& name : names) {
        models.push_back(std::make_unique<CheckModel>(check, name, shapesOf(name)));
        models.back()->open();
    }
    for (int round = 0; round < 3; ++round) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            models[i]->startTransaction();
            Object* object = models[i]->make(names[i]);
            (*object)["value"] = round * 10 + static_cast<int>(i);
            object->link("others", models[i]->make(names[i] + "Other"));
        }
        models[2]->commit();
        models[0]->rollback();
        models[1]->commit();
    }
    check.expect(valuesOf(check, names[0]).empty(), "a model stores what it rolled back");
    check.expect(valuesOf(check, names[1]) == std::vector<int>{1, 11, 21},
                 "a model does not store what it committed, or more than that");
    check.expect(valuesOf(check, names[2]) == std::vector<int>{2, 12, 22},
                 "another model does not store what it committed, or more than that");
}

// Each model on a thread of its own, which nothing but the driver's own data
// joins. They write one after the other where the database has them wait.
void runThreads(Check& check) {
    constexpr int threads = 4;
    constexpr int rounds = 25;
    const auto nameOf = [](int number) { return "Threaded" + std::to_string(number); };
    for (int i = 0; i < threads; ++i)
        CheckModel(check, nameOf(i), shapesOf(nameOf(i))).open();
    std::vector<Raised> raised(threads);
    {
        std::vector<std::jthread> all;
        all.reserve(threads);
        for (int i = 0; i < threads; ++i)
            all.emplace_back([&, i] {
                raised[static_cast<std::size_t>(i)] = raisedBy([&] {
                    CheckModel model(check, nameOf(i), shapesOf(nameOf(i)));
                    model.open();
                    for (int round = 0; round < rounds; ++round) {
                        transact(model, [&] { (*model.make(nameOf(i)))["value"] = round; });
                        Selection selection(model[nameOf(i)]);
                        while (selection.next())
                            continue;
                    }
                });
            });
    }
    for (const Raised& each : raised)
        check.expect(!each, "a model on a thread of its own fails: " + each.message);
    for (int i = 0; i < threads; ++i)
        check.expectEqual<std::size_t>(rounds, valuesOf(check, nameOf(i)).size(),
                                       "objects that a thread has stored");
}

// What a transaction of every kind of change leaves, taken back and brought back.
void undoAndRedo(Check& check) {
    Sessions sessions(check, "undone");
    const std::vector<unsigned long> ids = sessions.store(2);
    sessions.one.setMaxUndoSize(10);
    unsigned long added = 0;
    transact(sessions.one, [&] {
        Sessions::change(*sessions.get(sessions.one, ids[0]), 50);
        sessions.get(sessions.one, ids[1])->remove();
        Object* object = sessions.one.make(sessions.name);
        (*object)["value"] = 60;
        added = object->getObjectID();
    });
    const auto expectBefore = [&](const std::string& when) {
        check.expectEqual(0, sessions.stored(ids[0]), "a changed value after " + when);
        check.expectEqual(1, sessions.stored(ids[1]), "a removed object after " + when);
        check.expectEqual(-1, sessions.stored(added), "an added object after " + when);
    };
    sessions.one.undo();
    expectBefore("an undo");
    sessions.one.redo();
    check.expectEqual(50, sessions.stored(ids[0]), "a changed value after a redo");
    check.expectEqual(-1, sessions.stored(ids[1]), "a removed object after a redo");
    check.expectEqual(60, sessions.stored(added), "an added object after a redo");
    sessions.one.undo();
    expectBefore("a second undo");
    transact(sessions.two, [&] {
        Sessions::change(*sessions.get(sessions.two, ids[0]), 70);
        Sessions::change(*sessions.get(sessions.two, ids[1]), 71);
    });
    check.expectEqual(71, sessions.stored(ids[1]), "an object that came back and was changed");
}

void undoLinks(Check& check) {
    const std::string name = "Unlinked";
    CheckModel model(check, name, shapesOf(name));
    model.open();
    model.setMaxUndoSize(10);
    Pointer<Object> owner;
    Pointer<Object> other;
    transact(model, [&] {
        owner = model.make(name);
        other = model.make(name + "Other");
    });
    const auto storedLinks = [&] {
        CheckModel reader(check, name, shapesOf(name));
        reader.open();
        Object* read = reader.find(name, owner->getObjectID());
        check.require(read != nullptr, "the owner is not stored");
        return read->partners("others").size();
    };
    transact(model, [&] { owner->link("others", other); });
    model.undo();
    check.expectEqual<std::size_t>(0, storedLinks(), "links after an undo");
    model.redo();
    check.expectEqual<std::size_t>(1, storedLinks(), "links after a redo");
    transact(model, [&] { other->remove(); });
    check.expectEqual<std::size_t>(0, storedLinks(), "links of a removed object");
    model.undo();
    check.expectEqual<std::size_t>(1, storedLinks(), "links of an object that came back");
}

// What somebody else has changed since is not taken back, and nothing else.
void undoConflict(Check& check) {
    Sessions sessions(check, "undoconflict");
    const std::vector<unsigned long> ids = sessions.store(2);
    sessions.one.setMaxUndoSize(10);
    transact(sessions.one, [&] {
        for (const unsigned long id : ids)
            Sessions::change(*sessions.get(sessions.one, id), 50);
    });
    transact(sessions.two, [&] { Sessions::change(*sessions.get(sessions.two, ids[1]), 70); });
    const Raised raised = raisedBy([&] { sessions.one.undo(); });
    check.expectEqual<std::string>("Transaction::undo/redo", raised.code,
                                   "the code of the refused undo");
    check.expectEqual(50, sessions.stored(ids[0]), "a value beside the conflict");
    check.expectEqual(70, sessions.stored(ids[1]), "the value of the other session");
}

}  // namespace

void addModelChecks(Suite& suite) {
    suite.add("models.interleaved", interleaveModels);
    suite.add("models.on-threads", runThreads);
    suite.add("undo.and-redo", undoAndRedo);
    suite.add("undo.links", undoLinks);
    suite.add("undo.conflict", undoConflict);
}

}  // namespace Kes::check
