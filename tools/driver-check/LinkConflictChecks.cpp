// Two sessions that link and remove the same objects.

#include <set>

#include "Shape.h"
#include "Topics.h"

namespace Kes::check {

namespace {

struct Relation {
    const char* name;
    const char* ownerRole;
    const char* thingRole;
};

constexpr Relation Relations[] = {{"one-to-one", "guard", "guarded"},
                                  {"one-to-many", "things", "owner"},
                                  {"many-to-many", "uses", "usedBy"}};

// Two owners and two things, in the memory of two sessions.
class Pair {
public:
    Pair(Check& runs, const std::string& label)
        : check(runs),
          prefix("Pair" + label),
          one(runs, prefix, shapes()),
          two(runs, prefix, shapes()) {
        one.open();
        transact(one, [&] {
            for (int i = 0; i < 2; ++i) {
                ownerIds.push_back(one.make(prefix + "Owner")->getObjectID());
                thingIds.push_back(one.make(prefix + "Thing")->getObjectID());
            }
        });
        two.open();
    }

    Object* owner(CheckModel& session, std::size_t number) {
        return get(session, prefix + "Owner", ownerIds[number]);
    }
    Object* thing(CheckModel& session, std::size_t number) {
        return get(session, prefix + "Thing", thingIds[number]);
    }

    using Links = std::set<std::pair<unsigned long, unsigned long>>;

    /// The links that a new session reads. Both sides, and what a condition
    /// finds, have to tell the same.
    Links stored(const Relation& relation) {
        CheckModel reader(check, prefix, shapes());
        reader.open();
        Links fromOwners = readSide(reader, "Owner", relation.ownerRole);
        Links fromThings;
        for (const auto& [thingId, ownerId] : readSide(reader, "Thing", relation.thingRole))
            fromThings.emplace(ownerId, thingId);
        check.expect(fromOwners == fromThings, "the two sides tell different links");
        Selection linked(reader[prefix + "Owner"]);
        linked.where(linked(reader.tagged(prefix + relation.name).c_str(), relation.ownerRole) !=
                     nullptr);
        std::set<unsigned long> owners;
        for (const auto& link : fromOwners)
            owners.insert(link.first);
        const std::vector<unsigned long> found = idsOf(linked);
        check.expect(owners == std::set<unsigned long>(found.begin(), found.end()),
                     "a condition finds links that are none, or misses some");
        return fromOwners;
    }

    Check& check;
    const std::string prefix;

private:
    std::vector<Shape> shapes() const {
        return {Shape(prefix + "Owner")
                    .one(prefix + Relations[0].name, Relations[0].ownerRole)
                    .many(prefix + Relations[1].name, Relations[1].ownerRole)
                    .many(prefix + Relations[2].name, Relations[2].ownerRole),
                Shape(prefix + "Thing")
                    .one(prefix + Relations[0].name, Relations[0].thingRole)
                    .one(prefix + Relations[1].name, Relations[1].thingRole)
                    .many(prefix + Relations[2].name, Relations[2].thingRole)};
    }

    Object* get(CheckModel& session, const std::string& cls, unsigned long id) {
        Object* object = session.find(cls, id);
        check.require(object != nullptr, "an object that was stored is not to be found");
        kept.emplace_back(object);
        return object;
    }

    Links readSide(CheckModel& reader, const std::string& end, const std::string& role) {
        Links links;
        Selection selection(reader[prefix + end]);
        for (const Pointer<Object>& object : allOf(selection))
            for (const Object* partner : object->partners(role))
                links.emplace(object->getObjectID(), partner->getObjectID());
        return links;
    }

public:
    CheckModel one;
    CheckModel two;
    std::vector<unsigned long> ownerIds;
    std::vector<unsigned long> thingIds;

private:
    std::vector<Pointer<Object>> kept;
};

// A commit that fails has to be a conflict, and nothing else.
bool commits(Pair& pair, CheckModel& session) {
    const Raised raised = raisedBy([&] { session.commit(); });
    if (raised)
        pair.check.expectEqual<std::string>("COMFAIL", raised.code, "the code of the conflict");
    return !raised;
}

// A link to somebody who is gone does not come to be.
void linkRemoved(Check& check, const Relation& relation, bool ownerGoes) {
    Pair pair(check, std::string(ownerGoes ? "ownergone" : "thinggone") + relation.name);
    Object* owner = pair.owner(pair.two, 0);
    Object* thing = pair.thing(pair.two, 0);
    transact(pair.one,
             [&] { (ownerGoes ? pair.owner(pair.one, 0) : pair.thing(pair.one, 0))->remove(); });
    pair.two.startTransaction();
    owner->link(relation.ownerRole, thing);
    check.expect(!commits(pair, pair.two), "a link with a removed object is accepted");
    check.expect(pair.stored(relation).empty(), "a link with a removed object is stored");
}

// A removal leaves no link behind, whoever made it.
void removeLinked(Check& check, const Relation& relation, bool ownerGoes) {
    Pair pair(check, std::string(ownerGoes ? "ownergoes" : "thinggoes") + relation.name);
    Object* gone = ownerGoes ? pair.owner(pair.two, 0) : pair.thing(pair.two, 0);
    transact(pair.one,
             [&] { pair.owner(pair.one, 0)->link(relation.ownerRole, pair.thing(pair.one, 0)); });
    pair.two.startTransaction();
    gone->remove();
    const bool isRemoved = commits(pair, pair.two);
    check.expectEqual<std::size_t>(
        isRemoved ? 0 : 1, pair.stored(relation).size(),
        isRemoved ? "links of a removed object" : "links after a removal that failed");
}

void linkTwice(Check& check, const Relation& relation) {
    Pair pair(check, std::string("same") + relation.name);
    Object* owner = pair.owner(pair.two, 0);
    Object* thing = pair.thing(pair.two, 0);
    transact(pair.one,
             [&] { pair.owner(pair.one, 0)->link(relation.ownerRole, pair.thing(pair.one, 0)); });
    pair.two.startTransaction();
    owner->link(relation.ownerRole, thing);
    commits(pair, pair.two);
    check.expect(pair.stored(relation) == Pair::Links{{pair.ownerIds[0], pair.thingIds[0]}},
                 "a link that two sessions made is not one");
}

// Two owners want one thing.
void linkRivals(Check& check, const Relation& relation) {
    Pair pair(check, std::string("rivals") + relation.name);
    Object* owner = pair.owner(pair.two, 1);
    Object* thing = pair.thing(pair.two, 0);
    transact(pair.one,
             [&] { pair.owner(pair.one, 0)->link(relation.ownerRole, pair.thing(pair.one, 0)); });
    pair.two.startTransaction();
    owner->link(relation.ownerRole, thing);
    const bool isDone = commits(pair, pair.two);
    Pair::Links wanted{{pair.ownerIds[0], pair.thingIds[0]}};
    const bool isShared = relation.name == std::string("many-to-many");
    check.expectEqual(isShared, isDone, "whether the second session's link is accepted");
    if (isShared)
        wanted.emplace(pair.ownerIds[1], pair.thingIds[0]);
    check.expect(pair.stored(relation) == wanted, "other links than those that were accepted");
}

// Links between different objects do not disturb one another.
void linkOthers(Check& check, const Relation& relation) {
    Pair pair(check, std::string("others") + relation.name);
    pair.one.startTransaction();
    pair.two.startTransaction();
    pair.owner(pair.one, 0)->link(relation.ownerRole, pair.thing(pair.one, 0));
    pair.owner(pair.two, 1)->link(relation.ownerRole, pair.thing(pair.two, 1));
    pair.one.commit();
    pair.two.commit();
    check.expectEqual<std::size_t>(2, pair.stored(relation).size(), "links");
}

}  // namespace

void addLinkConflictChecks(Suite& suite) {
    for (const Relation& relation : Relations) {
        const std::string topic = std::string("conflicts.links.") + relation.name + ".";
        for (const bool ownerGoes : {true, false}) {
            const std::string end = ownerGoes ? "owner" : "thing";
            suite.add(topic + "with-removed-" + end,
                      [=](Check& c) { linkRemoved(c, relation, ownerGoes); });
            suite.add(topic + "of-removed-" + end,
                      [=](Check& c) { removeLinked(c, relation, ownerGoes); });
        }
        suite.add(topic + "made-twice", [=](Check& c) { linkTwice(c, relation); });
        suite.add(topic + "rivals", [=](Check& c) { linkRivals(c, relation); });
        suite.add(topic + "others", [=](Check& c) { linkOthers(c, relation); });
    }
}

}  // namespace Kes::check
