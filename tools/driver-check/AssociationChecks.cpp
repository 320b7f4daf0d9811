// Every plurality, between two classes and of a class with itself.
//
// A check links and dissolves objects, and an oracle that knows nothing but
// pairs does the same. Afterwards a second session reads both sides of every
// object and asks conditions on both roles; all have to tell the same pairs.

#include <algorithm>
#include <array>
#include <random>
#include <set>

#include "Links.h"
#include "Shape.h"
#include "Topics.h"

namespace Kes::check {

namespace {

void linkNew(Links& links) {
    transact(links.model, [&] {
        links.makeObjects(3);
        links.link(0, 0);
        links.link(1, 1);
    });
    links.verify();
}

void linkStored(Links& links) {
    links.storeObjects(3);
    transact(links.model, [&] { links.link(0, 1); });
    links.verify();
}

void linkFromTheOtherSide(Links& links) {
    links.storeObjects(3);
    transact(links.model, [&] {
        links.linkBackwards(1, 0);
        links.linkBackwards(2, 2);
    });
    links.verify();
}

void linkNewToStored(Links& links) {
    links.storeObjects(2);
    transact(links.model, [&] {
        links.makeObjects(1);
        links.link(0, 2);
        links.link(2, 1);
    });
    links.verify();
}

void dissolve(Links& links) {
    links.storeObjects(3);
    transact(links.model, [&] {
        links.link(0, 0);
        links.link(1, 1);
    });
    transact(links.model, [&] { links.unlink(0, 0); });
    links.verify();
}

void dissolveFromTheOtherSide(Links& links) {
    links.storeObjects(3);
    transact(links.model, [&] {
        links.link(0, 1);
        links.link(2, 0);
    });
    transact(links.model, [&] { links.unlinkBackwards(0, 1); });
    links.verify();
}

void linkAndDissolveAtOnce(Links& links) {
    links.storeObjects(2);
    transact(links.model, [&] {
        links.link(0, 1);
        links.unlink(0, 1);
        links.link(1, 0);
    });
    links.verify();
}

void dissolveAndLinkAtOnce(Links& links) {
    links.storeObjects(2);
    transact(links.model, [&] { links.link(0, 1); });
    transact(links.model, [&] {
        links.unlink(0, 1);
        links.link(0, 1);
    });
    links.verify();
}

// A partner that somebody else has leaves him where only one is allowed.
void takeAway(Links& links) {
    links.storeObjects(4);
    transact(links.model, [&] {
        links.link(0, 1);
        links.link(2, 3);
    });
    transact(links.model, [&] { links.link(0, 3); });
    links.verify();
}

void takeAwayFromTheOtherSide(Links& links) {
    links.storeObjects(4);
    transact(links.model, [&] {
        links.link(0, 1);
        links.link(2, 3);
    });
    transact(links.model, [&] { links.linkBackwards(2, 1); });
    links.verify();
}

void removeFirst(Links& links) {
    links.storeObjects(3);
    transact(links.model, [&] {
        links.link(0, 1);
        links.link(2, 2);
    });
    transact(links.model, [&] { links.removeLeft(0); });
    links.verify();
}

void removeSecond(Links& links) {
    links.storeObjects(3);
    transact(links.model, [&] {
        links.link(0, 1);
        links.link(2, 2);
    });
    transact(links.model, [&] { links.removeRight(1); });
    links.verify();
}

// The reference that has to go lies in a row that nobody has in memory.
void removeUnseenPartner(Links& links) {
    links.storeObjects(3);
    transact(links.model, [&] {
        links.link(0, 1);
        links.link(2, 2);
    });
    links.reopen();
    transact(links.model, [&] { links.removeRight(1); });
    links.verify();
    links.reopen();
    transact(links.model, [&] { links.removeLeft(2); });
    links.verify();
}

void linkDissolveAndRemoveAtOnce(Links& links) {
    links.storeObjects(1);
    transact(links.model, [&] {
        links.makeObjects(2);
        links.link(1, 2);
        links.link(0, 1);
        links.unlink(1, 2);
        links.removeRight(2);
    });
    links.verify();
}

void rollBack(Links& links) {
    links.storeObjects(4);
    transact(links.model, [&] {
        links.link(0, 1);
        links.link(2, 3);
    });
    const Links::Pairs before = links.pairs();
    links.model.startTransaction();
    links.unlink(0, 1);
    links.link(1, 0);
    links.link(2, 1);
    links.model.rollback();
    links.restore(before);
    links.verifyMemory();
    links.verify();
}

void linkItself(Links& links) {
    links.storeObjects(2);
    transact(links.model, [&] { links.link(0, 0); });
    links.verify();
    transact(links.model, [&] { links.unlink(0, 0); });
    links.verify();
    transact(links.model, [&] { links.link(1, 1); });
    transact(links.model, [&] { links.removeLeft(1); });
    links.verify();
}

void makeCircle(Links& links) {
    constexpr std::size_t size = 10;
    links.storeObjects(size);
    transact(links.model, [&] {
        for (std::size_t i = 0; i < size; ++i)
            links.link(i, (i + 1) % size);
    });
    links.verify();
    transact(links.model, [&] { links.removeLeft(3); });
    links.verify();
}

void linkMany(Links& links) {
    constexpr std::size_t size = 120;
    links.storeObjects(size);
    transact(links.model, [&] {
        for (std::size_t i = 0; i < size; ++i)
            links.link(links.isLeftMany() ? 5 : i, links.isLeftMany() ? i : 7);
    });
    links.verify();
    transact(links.model, [&] {
        for (std::size_t i = 0; i < size; i += 3)
            links.unlink(links.isLeftMany() ? 5 : i, links.isLeftMany() ? i : 7);
    });
    links.verify();
}

// One step that concerns nobody whom an earlier step of the transaction has
// concerned: what a session has in memory need not follow a second one.
std::string doSomething(Links& links, std::mt19937& random, Links::Touched& touched) {
    const std::size_t one = random() % 8;
    const std::size_t other = random() % 8;
    const unsigned step = random() % 4;
    if (!links.touch(one, other, touched))
        return "";
    const std::string pair = " " + std::to_string(one) + "-" + std::to_string(other) + ", ";
    switch (step) {
    case 0: links.link(one, other); return "link" + pair;
    case 1: links.linkBackwards(one, other); return "link backwards" + pair;
    case 2: links.unlink(one, other); return "dissolve" + pair;
    default: links.unlinkBackwards(one, other); return "dissolve backwards" + pair;
    }
}

void doAnything(Links& links, unsigned seed) {
    std::mt19937 random(seed);
    std::string history;
    links.storeObjects(8);
    for (int round = 0; round < 40; ++round) {
        const Links::Pairs before = links.pairs();
        Links::Touched touched;
        links.model.startTransaction();
        for (int step = 0; step < 6; ++step)
            history += doSomething(links, random, touched);
        if (random() % 4 == 0) {
            links.model.rollback();
            links.restore(before);
            history += "roll back, ";
        } else {
            links.model.commit();
            history += "commit, ";
        }
        links.reopen();
        links.verifyMemory(" after " + history);
    }
    links.verify();
}

// Removing the top of a tree removes what refers to it, and nothing else.
void removeTree(Check& check) {
    const std::vector<Shape> shapes{Shape("CascadeNode")
                                        .field("number", Kind::Int)
                                        .one("CascadeTree", "parent", Association::CascadeRemove)
                                        .many("CascadeTree", "children")};
    CheckModel model(check, "cascade", shapes);
    model.open();
    std::vector<Pointer<Object>> nodes;
    transact(model, [&] {
        for (int i = 0; i < 15; ++i) {
            nodes.emplace_back(model.make("CascadeNode"));
            if (i > 0)
                nodes.back()->link("parent", nodes[static_cast<std::size_t>(i - 1) / 2]);
        }
    });
    const auto stored = [&] {
        CheckModel second(check, "cascade", shapes);
        second.open();
        std::set<std::size_t> found;
        for (std::size_t i = 0; i < nodes.size(); ++i)
            if (second.find("CascadeNode", nodes[i]->getObjectID()) != nullptr)
                found.insert(i);
        return found;
    };
    model.startTransaction();
    nodes[1]->remove();
    model.rollback();
    check.expectEqual<std::size_t>(15, stored().size(), "objects after a rolled back removal");
    transact(model, [&] { nodes[1]->remove(); });
    check.expect(stored() == std::set<std::size_t>{0, 2, 5, 6, 11, 12, 13, 14},
                 "removing a node removed other nodes than those below it");
}

// References to a base class that hold objects of its sub classes.
void linkSubClasses(Check& check) {
    const std::vector<Shape> shapes{
        Shape("MixedBase").field("number", Kind::Int).asAbstract(),
        Shape("MixedOne", "MixedBase").field("first", Kind::Int),
        Shape("MixedTwo", "MixedBase").field("second", Kind::Double),
        Shape("MixedOwner").one("MixedFirst", "favourite").many("MixedAll", "everything")};
    std::vector<Shape> complete = shapes;
    complete[0].many("MixedFirst", "favouriteOf").many("MixedAll", "ownedBy");
    CheckModel model(check, "mixed", complete);
    model.open();
    Pointer<Object> owner;
    Pointer<Object> one;
    Pointer<Object> two;
    transact(model, [&] {
        owner = model.make("MixedOwner");
        one = model.make("MixedOne");
        two = model.make("MixedTwo");
        owner->link("favourite", two);
        owner->link("everything", one);
        owner->link("everything", two);
    });
    CheckModel second(check, "mixed", complete);
    second.open();
    const Pointer<Object> read(second.find("MixedOwner", owner->getObjectID()));
    check.require(read != nullptr, "the owner is not stored");
    Object* favourite = read->partner("favourite");
    check.require(favourite != nullptr, "a reference to an object of a sub class is empty");
    check.expectEqual(two->getObjectID(), favourite->getObjectID(), "the favourite's id");
    check.expect(favourite->getClass() == second["MixedTwo"], "the favourite has another class");
    check.expectEqual<std::size_t>(2, read->partners("everything").size(),
                                   "partners of two sub classes");
    Selection owners(second["MixedOwner"]);
    owners.where(owners(second.tagged("MixedAll").c_str()) == static_cast<Instance*>(favourite));
    check.expectEqual<std::size_t>(1, idsOf(owners).size(), "owners of an object of a sub class");
}

void addFor(Suite& suite, const Ends& ends) {
    using Work = void (*)(Links&);
    constexpr std::pair<const char*, Work> all[] = {
        {"between-new-objects", linkNew},
        {"between-stored-objects", linkStored},
        {"from-the-other-side", linkFromTheOtherSide},
        {"of-new-with-stored", linkNewToStored},
        {"dissolved", dissolve},
        {"dissolved-from-the-other-side", dissolveFromTheOtherSide},
        {"made-and-dissolved-at-once", linkAndDissolveAtOnce},
        {"dissolved-and-made-at-once", dissolveAndLinkAtOnce},
        {"taken-away", takeAway},
        {"taken-away-from-the-other-side", takeAwayFromTheOtherSide},
        {"first-end-removed", removeFirst},
        {"second-end-removed", removeSecond},
        {"unseen-end-removed", removeUnseenPartner},
        {"removed-before-stored", linkDissolveAndRemoveAtOnce},
        {"rolled-back", rollBack},
        {"of-very-many", linkMany},
    };
    const std::string topic = std::string("associations.") + ends.name + ".";
    for (const auto& [label, work] : all)
        suite.add(topic + label, [ends, run = work](Check& c) {
            Links links(c, ends);
            run(links);
        });
    suite.add(topic + "anything", [ends](Check& c) {
        Links links(c, ends);
        doAnything(links, c.config().seed);
    });
    if (!ends.isSelf)
        return;
    suite.add(topic + "with-itself", [ends](Check& c) {
        Links links(c, ends);
        linkItself(links);
    });
    suite.add(topic + "in-a-circle", [ends](Check& c) {
        Links links(c, ends);
        makeCircle(links);
    });
}

}  // namespace

void addAssociationChecks(Suite& suite) {
    for (const Ends& ends :
         {Ends{"one-to-one", false, false, false}, Ends{"one-to-many", true, false, false},
          Ends{"many-to-one", false, true, false}, Ends{"many-to-many", true, true, false},
          Ends{"self-one-to-one", false, false, true}, Ends{"self-one-to-many", true, false, true},
          Ends{"self-many-to-one", false, true, true}, Ends{"self-many-to-many", true, true, true}})
        addFor(suite, ends);
    suite.add("associations.cascade", removeTree);
    suite.add("associations.with-sub-classes", linkSubClasses);
}

}  // namespace Kes::check
